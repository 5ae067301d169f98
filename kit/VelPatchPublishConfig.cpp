#include "kit/VelPatchPublishConfig.h"

#include "core/CXStringEdit.h"
#include "net/CXURI.h"

#include <algorithm>

namespace {

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

CXString DigestSalt(const VelPatchPublishService& service) {
    return CXString::Format("velpatch&%s", service.baseAddress.GetData());
}

CXString ServerPart(const VelPatchPublishService& service, const CXString& folder) {
    const CXString base = BasePath(service);
    const CXString replies = Quote(CXString::Format("%s/replies", folder.GetData()));
    const CXString files = Quote(CXString::Format("%s/files/", folder.GetData()));
    CXStringEdit out;
    out.Append(kFileHead);
    out.Append("# For the \"server\" block.\n\n");
    const std::pair<const char*, const char*> scripts[] = {
        {"rollstockstreamcheck.php", "stream_check"}, {"getstreamfile.php", "stream_file"}};
    for (const auto& [script, variable] : scripts) {
        out.AppendFormat("location = %sstreams/%s {\n", base.GetData(), script);
        out.AppendFormat("    root %s;\n", replies.GetData());
        out.AppendFormat("    try_files /$velpatch_%s =500;\n", variable);
        if (service.hashesPasswords && !service.isOpen) {
            out.Append("    secure_link $velpatch_digest;\n");
            out.AppendFormat("    secure_link_md5 \"%s&$velpatch_login&$arg_p\";\n",
                             DigestSalt(service).GetData());
        }
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
    out.Append(kFileHead);
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
