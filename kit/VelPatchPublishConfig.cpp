#include "kit/VelPatchPublishConfig.h"

#include "core/CXStringEdit.h"
#include "net/CXURI.h"

#include <algorithm>

namespace {

constexpr const char* kHead = "# Written by \"velpatch-kit publish\", which replaces this file.\n";
/// For folders named by contents: a year, as good as for ever.
constexpr const char* kKeepForEver = "\"public, max-age=31536000, immutable\"";

/// A text in the form of the replies, where a quote is doubled and nothing else has a meaning.
void AppendQuotedText(CXStringEdit& out, absl::string_view text) {
    out.AppendByte('"');
    for (const char byte : text) {
        if (byte == '"') {
            out.AppendByte('"');
        }
        out.AppendByte(byte);
    }
    out.Append("\"\n");
}

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

/// The folder of the base address, with "/" at both ends.
CXString BasePath(const VelPatchPublishService& service) {
    const CXURI uri(service.baseAddress.View());
    return CXString::Format("/%s", uri.path.GetData());
}

} // namespace

namespace VelPatchPublishConfig {

CXString ErrorReply(const char* word) {
    return CXString::Format("error \"%s\"\n", word);
}

CXString StreamCheckReply(const VelPatchPublishService& service,
                          const std::vector<size_t>& streams) {
    CXStringEdit reply;
    reply.Append("good 1\n");
    for (const size_t index : streams) {
        const VelPatchPublishStream& stream = service.streams[index];
        reply.Append("stream ");
        AppendQuotedText(reply,
                         CXString::Format("%s %s", stream.id.GetData(), stream.name.GetData()));
    }
    reply.Append("default-stream ");
    AppendQuotedText(reply, service.streams[streams.front()].id);
    return reply.ToString();
}

CXString PatchReply(const CXString& controlAddress, const CXString& dataAddress,
                    const CXString& description) {
    CXStringEdit reply;
    reply.Append("good 1\npatch-control-file ");
    AppendQuotedText(reply, controlAddress);
    reply.Append("patch-data-file ");
    AppendQuotedText(reply, dataAddress);
    reply.Append("description ");
    AppendQuotedText(reply, description);
    return reply.ToString();
}

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

CXString Quote(absl::string_view text) {
    CXStringEdit out;
    out.AppendByte('"');
    for (const char byte : text) {
        if (byte == '"' || byte == '\\') {
            out.AppendByte('\\');
        }
        out.AppendByte(byte);
    }
    out.AppendByte('"');
    return out.ToString();
}

Groups MakeGroups(const VelPatchPublishService& service) {
    std::vector<VelPatchPublishAccount> accounts = service.accounts;
    if (service.isOpen) { // one account, that everybody has
        accounts.emplace_back();
        for (size_t i = 0; i < service.products.size(); ++i) {
            accounts.back().products.push_back(i);
        }
    }
    Groups made;
    for (const VelPatchPublishAccount& account : accounts) {
        Groups::Group group;
        group.products = account.products;
        for (size_t i = 0; i < service.streams.size(); ++i) {
            const bool isOwned =
                std::any_of(group.products.begin(), group.products.end(), [&](size_t product) {
                    const std::vector<size_t>& offered = service.products[product].streams;
                    return std::count(offered.begin(), offered.end(), i) != 0;
                });
            if (isOwned && (!service.streams[i].isRestricted ||
                            std::count(account.streams.begin(), account.streams.end(), i) != 0)) {
                group.streams.push_back(i);
            }
        }
        const auto same =
            std::find_if(made.groups.begin(), made.groups.end(), [&](const Groups::Group& other) {
                return other.products == group.products && other.streams == group.streams;
            });
        made.ofAccount.push_back(static_cast<size_t>(same - made.groups.begin()));
        if (same == made.groups.end()) {
            made.groups.push_back(group);
        }
    }
    return made;
}

std::vector<size_t> StreamsFor(const VelPatchPublishService& service, const Groups::Group& group,
                               size_t product) {
    std::vector<size_t> found;
    if (std::count(group.products.begin(), group.products.end(), product) != 0) {
        for (const size_t stream : service.products[product].streams) {
            if (std::count(group.streams.begin(), group.streams.end(), stream) != 0) {
                found.push_back(stream);
            }
        }
    }
    return found;
}

namespace {

void PutAccounts(CXStringEdit& out, const VelPatchPublishService& service, const Groups& made) {
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
    out.Append(kHead);
    out.Append("# For the \"http\" block.\n\n");
    PutAccounts(out, service, made);
    PutStreamCheck(out, service, made, name);
    PutStreamFile(out, service, made, offer, name);
    out.Append("# Addresses hold passwords: no line of a log may hold a query.\n"
               "log_format velpatch '$remote_addr [$time_iso8601] \"$request_method $uri\" '\n"
               "                    '$status $body_bytes_sent';\n");
    return out.ToString();
}

CXString ServerPart(const VelPatchPublishService& service, const CXString& folder) {
    const CXString base = BasePath(service);
    const CXString replies = Quote(CXString::Format("%s/replies", folder.GetData()));
    const CXString files = Quote(CXString::Format("%s/files/", folder.GetData()));
    CXStringEdit out;
    out.Append(kHead);
    out.Append("# For the \"server\" block.\n\n");
    const std::pair<const char*, const char*> scripts[] = {
        {"rollstockstreamcheck.php", "stream_check"}, {"getstreamfile.php", "stream_file"}};
    for (const auto& [script, variable] : scripts) {
        out.AppendFormat("location = %sstreams/%s {\n", base.GetData(), script);
        out.AppendFormat("    root %s;\n", replies.GetData());
        out.AppendFormat("    try_files /$velpatch_%s =500;\n", variable);
        out.Append("    access_log off;\n"
                   "    types { }\n"
                   "    default_type \"text/plain; charset=utf-8\";\n"
                   "    add_header Cache-Control no-store;\n"
                   "    etag off;\n"
                   "    if_modified_since off;\n"
                   "    max_ranges 0;\n"
                   "    gzip off;\n"
                   "}\n\n");
    }
    out.Append(
        "# A download that goes on behind what is there is refused by the player's program:\n"
        "# without ranges it starts over, and succeeds.\n");
    out.AppendFormat("location ^~ %sfiles/ {\n", base.GetData());
    out.AppendFormat("    alias %s;\n", files.GetData());
    out.AppendFormat("    add_header Cache-Control %s;\n", kKeepForEver);
    out.Append("    max_ranges 0;\n"
               "    gzip off;\n"
               "    types { text/plain txt; }\n"
               "    default_type application/octet-stream;\n"
               "}\n");
    return out.ToString();
}

CXString StandAlone(const VelPatchPublishService& service, const CXString& folder) {
    const CXURI uri(service.baseAddress.View());
    const VelPatchPublishServer& server = service.server;
    CXStringEdit out;
    out.Append(kHead);
    out.Append("# A whole server: nginx -c THIS-FILE\n\n");
    const CXString run = CXString::Format("%s/run", folder.GetData());
    const auto path = [&](const char* name) {
        return Quote(CXString::Format("%s/%s", run.GetData(), name));
    };
    out.AppendFormat("worker_processes auto;\npid %s;\nerror_log %s;\n",
                     path("nginx.pid").GetData(), path("log/error.log").GetData());
    out.Append("events { worker_connections 1024; }\nhttp {\n");
    for (const char* use : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        out.AppendFormat("    %s_temp_path %s;\n", use,
                         path(CXString::Format("temp-%s", use).GetData()).GetData());
    }
    out.Append("    map_hash_max_size 65536;\n    include velpatch-http.conf;\n"
               "    sendfile on;\n    tcp_nopush on;\n    server_tokens off;\n");
    out.AppendFormat("    access_log %s velpatch;\n", path("log/access.log").GetData());
    out.Append("    server {\n");
    out.AppendFormat("        listen %s ssl;\n", server.listen.GetData());
    out.AppendFormat("        server_name %s;\n", uri.host.GetData());
    out.AppendFormat("        ssl_certificate %s;\n", Quote(server.certificate).GetData());
    out.AppendFormat("        ssl_certificate_key %s;\n", Quote(server.certificateKey).GetData());
    out.Append("        ssl_protocols TLSv1.2 TLSv1.3;\n"
               "        include velpatch-server.conf;\n"
               "        location / { return 404; }\n    }\n}\n");
    return out.ToString();
}

} // namespace VelPatchPublishConfig
