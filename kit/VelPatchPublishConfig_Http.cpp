// The maps of the web server that lead from a request to its reply.
#include "kit/VelPatchPublishConfig.h"

#include "core/CXEncoding.h"
#include "core/CXMD5.h"
#include "core/CXStringEdit.h"
#include "net/CXURI.h"

namespace {

bool IsLetterOrDigit(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9');
}

/// Whether a byte may reach the server as it is inside a query's value. "%" and "+" mean something
/// else there; "&" and "#" end the value, a blank ends the line.
bool MayStandBare(unsigned char byte) {
    return byte > ' ' && byte != 127 && byte != '%' && byte != '+' && byte != '&' && byte != '#';
}

/// A map of the web server, from opening to closing brace.
class Map {
public:
    Map(CXStringEdit& out, const char* source, const char* variable) : m_out(out) {
        m_out.AppendFormat("map %s $velpatch_%s {\n", source, variable);
    }
    ~Map() { m_out.Append("}\n\n"); }
    Map(const Map&) = delete;
    Map& operator=(const Map&) = delete;

    /// A key of our own words and of digits: letter case has no part in it.
    void Put(const CXString& key, const CXString& value) {
        m_out.AppendFormat("    \"%s\" %s;\n", key.GetData(), value.GetData());
    }
    void PutDefault(const CXString& value) {
        m_out.AppendFormat("    default %s;\n", value.GetData());
    }
    /// A key that matches from the front, by an expression without quotes and dollars.
    void PutPattern(const CXString& pattern, const CXString& value) {
        m_out.AppendFormat("    \"~^%s\" %s;\n", pattern.GetData(), value.GetData());
    }

private:
    CXStringEdit& m_out;
};

CXString Numbered(const char* letter, size_t index) {
    return CXString::Format("%s%d", letter, index + 1);
}

} // namespace

namespace VelPatchPublishConfig {

CXString MatchEscaped(absl::string_view text) {
    constexpr const char* kDigits = "0123456789abcdef";
    CXStringEdit out;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        out.Append("(?:");
        if (IsLetterOrDigit(byte)) {
            out.AppendByte(letter);
            out.AppendByte('|');
        } else if (MayStandBare(byte)) {
            out.AppendFormat("\\x%02x|", byte);
        } else if (byte == ' ') {
            out.Append("\\x2b|"); // "+", as forms write it
        }
        out.AppendByte('%');
        for (const char digit : {kDigits[byte >> 4], kDigits[byte & 15]}) {
            if (digit >= 'a') {
                out.AppendFormat("[%c%c]", digit, static_cast<char>(digit - 32));
            } else {
                out.AppendByte(digit);
            }
        }
        out.AppendByte(')');
    }
    return out.ToString();
}

namespace {

/// MD5 in the form that the server's checked links have: Base64 for addresses, without padding.
CXString LinkDigest(const CXString& text) {
    CXMD5 digest;
    digest.Update(text.GetData(), text.GetLength());
    uint8_t bytes[16];
    digest.Finish(bytes);
    CXStringEdit encoded;
    Base64Encode(bytes, sizeof bytes, encoded);
    encoded.ReplaceAll("+", "-");
    encoded.ReplaceAll("/", "_");
    encoded.ReplaceAll("=", "");
    return encoded.ToString();
}

void PutHashedAccounts(CXStringEdit& out, const VelPatchPublishService& service,
                       const Groups& made) {
    out.Append(
        "# Who asks: \"missing\", \"wrong\" or a group of accounts. Passwords stand here as\n"
        "# salted MD5 digests, which withstand a look and not a patient guess.\n");
    {
        Map map(out, "$arg_u", "login");
        map.PutDefault("none");
        for (size_t i = 0; i < service.accounts.size(); ++i) {
            map.PutPattern(
                CXString::Format("%s\\z", MatchEscaped(service.accounts[i].user).GetData()),
                Numbered("a", i));
        }
    }
    {
        Map map(out, "$velpatch_login", "digest");
        map.PutDefault("\"\"");
        for (size_t i = 0; i < service.accounts.size(); ++i) {
            const CXString login = Numbered("a", i);
            const CXString password = CXURI::Encode(service.accounts[i].password, {});
            map.Put(login, LinkDigest(CXString::Format("%s&%s&%s", DigestSalt(service).GetData(),
                                                       login.GetData(), password.GetData())));
        }
    }
    {
        Map map(out, "$velpatch_login", "group");
        map.PutDefault("wrong");
        for (size_t i = 0; i < service.accounts.size(); ++i) {
            map.Put(Numbered("a", i), Numbered("g", made.ofAccount[i]));
        }
    }
    {
        Map map(out, "\"$arg_u&$arg_p\"", "given");
        map.PutDefault("given");
        map.PutPattern("&", "missing");
        map.PutPattern("[^&]*&\\z", "missing");
    }
    Map map(out, "\"$velpatch_given&$secure_link\"", "account");
    map.PutDefault("wrong");
    map.PutPattern("missing&", "missing");
    map.Put("given&1", "$velpatch_group");
}

void PutAccounts(CXStringEdit& out, const VelPatchPublishService& service, const Groups& made) {
    if (service.hashesPasswords && !service.isOpen) {
        PutHashedAccounts(out, service, made);
        return;
    }
    out.Append(
        "# Who asks: \"missing\", \"wrong\" or a group of accounts. A password stands here as "
        "a pattern:\n# nobody but the server may read this file.\n");
    Map map(out, "\"$arg_u&$arg_p\"", "account");
    if (service.isOpen) {
        map.PutDefault(Numbered("g", 0));
        return;
    }
    map.PutDefault("wrong");
    map.PutPattern("&", "missing");
    for (size_t i = 0; i < service.accounts.size(); ++i) {
        const VelPatchPublishAccount& account = service.accounts[i];
        map.PutPattern(CXString::Format("%s&%s\\z", MatchEscaped(account.user).GetData(),
                                        MatchEscaped(account.password).GetData()),
                       Numbered("g", made.ofAccount[i]));
    }
    map.PutPattern("[^&]*&\\z", "missing");
}

void PutAccountFailures(Map& map, const NameReply& name) {
    map.PutPattern("missing&", name(ErrorReply("login_details_not_received")));
    map.PutPattern("wrong&", name(ErrorReply("invalid-myrollstock-details")));
}

void PutStreamCheck(CXStringEdit& out, const VelPatchPublishService& service, const Groups& made,
                    const NameReply& name) {
    out.Append("# The product that asks; a bundle id with its own installation id goes first.\n");
    {
        Map map(out, "\"$arg_id&$arg_iid\"", "product");
        map.PutDefault("none");
        for (const bool hasInstallation : {true, false}) {
            for (size_t i = 0; i < service.products.size(); ++i) {
                const VelPatchPublishProduct& product = service.products[i];
                if (product.installationId.IsEmpty() != hasInstallation) {
                    const CXString end =
                        hasInstallation
                            ? CXString::Format("%s\\z",
                                               MatchEscaped(product.installationId).GetData())
                            : CXString();
                    map.PutPattern(CXString::Format("%s&%s",
                                                    MatchEscaped(product.bundleId).GetData(),
                                                    end.GetData()),
                                   Numbered("p", i));
                }
            }
        }
    }
    out.Append("# The reply to a stream check.\n");
    Map map(out, "\"$velpatch_account&$velpatch_product\"", "stream_check");
    map.PutDefault(name(ErrorReply("no-patch-streams")));
    PutAccountFailures(map, name);
    for (size_t g = 0; g < made.groups.size(); ++g) {
        if (made.groups[g].products.empty()) {
            map.PutPattern(CXString::Format("%s&", Numbered("g", g).GetData()),
                           name(ErrorReply("no-products-owned")));
        }
        for (size_t p = 0; p < service.products.size(); ++p) {
            const std::vector<size_t> streams = StreamsFor(service, made.groups[g], p);
            if (!streams.empty()) {
                map.Put(CXString::Format("%s&%s", Numbered("g", g).GetData(),
                                         Numbered("p", p).GetData()),
                        name(StreamCheckReply(service, streams)));
            }
        }
    }
}

void PutStreamFile(CXStringEdit& out, const VelPatchPublishService& service, const Groups& made,
                   const OfferPatch& offer, const NameReply& name) {
    {
        Map map(out, "$arg_stream", "stream");
        map.PutDefault("none");
        for (size_t i = 0; i < service.streams.size(); ++i) {
            map.PutPattern(CXString::Format("%s\\z", MatchEscaped(service.streams[i].id).GetData()),
                           Numbered("s", i));
        }
    }
    out.Append("# What each build and each installation of a stream is offered.\n");
    {
        Map map(out, "\"$velpatch_stream&$arg_build\"", "build");
        map.PutDefault(name(ErrorReply("unknown-build")));
        for (size_t i = 0; i < service.streams.size(); ++i) {
            const CXString stream = Numbered("s", i);
            for (const VelPatchPublishBuild& build : service.streams[i].builds) {
                map.Put(
                    CXString::Format("%s&%s", stream.GetData(), build.anchorChecksum.GetData()),
                    name(build.hasPatch ? offer(build.patch) : ErrorReply("no-patches-available")));
            }
            for (const VelPatchPublishInstallation& one : service.streams[i].installations) {
                map.PutPattern(
                    CXString::Format("%s&%s\\z", stream.GetData(), MatchEscaped(one.id).GetData()),
                    name(offer(one.patch)));
            }
        }
    }
    out.Append("# The reply to a request for a stream's file.\n");
    Map map(out, "\"$velpatch_account&$velpatch_stream\"", "stream_file");
    map.PutDefault(name(ErrorReply("no-patch-streams")));
    PutAccountFailures(map, name);
    for (size_t g = 0; g < made.groups.size(); ++g) {
        for (const size_t stream : made.groups[g].streams) {
            map.Put(CXString::Format("%s&%s", Numbered("g", g).GetData(),
                                     Numbered("s", stream).GetData()),
                    "$velpatch_build");
        }
    }
}

} // namespace

CXString HttpPart(const VelPatchPublishService& service, const OfferPatch& offer,
                  const NameReply& name) {
    const Groups made = MakeGroups(service);
    CXStringEdit out;
    out.Append(kFileHead);
    out.Append("# For the \"http\" block.\n\n");
    PutAccounts(out, service, made);
    PutStreamCheck(out, service, made, name);
    PutStreamFile(out, service, made, offer, name);
    out.Append("# Addresses hold passwords: no line of a log may hold a query.\n"
               "log_format velpatch '$remote_addr [$time_iso8601] \"$request_method $uri\" '\n"
               "                    '$status $body_bytes_sent';\n");
    return out.ToString();
}

} // namespace VelPatchPublishConfig
