#include "net/CXAddressMask.h"

#include "core/CXStringEdit.h"
#include "core/CXText.h"

#include <algorithm>

namespace {

constexpr absl::string_view kMask = "***";
constexpr absl::string_view kSecretHeaders[] = {"authorization", "proxy-authorization", "cookie",
                                                "set-cookie"};

/// Bytes of user and password at the front of `text`, which begins behind a scheme. 0: none.
size_t CredentialsLength(absl::string_view text) {
    const size_t slash = text.find('/');
    const size_t bang = text.find('!');
    if (bang < slash) {
        // A password may hold a slash; without an "@" all the rest may be one.
        return std::min(text.find('@', bang), text.size());
    }
    const size_t at = text.substr(0, slash).rfind('@');
    return at == absl::string_view::npos ? 0 : at;
}

/// Appends with the values of "u" and "p" masked, wherever a query names them.
void AppendMaskedQuery(absl::string_view text, CXStringEdit& out) {
    size_t at = 0;
    while (at < text.size()) {
        const char byte = text[at];
        const absl::string_view name = text.substr(at + 1, 2);
        out.AppendByte(byte);
        ++at;
        if ((byte == '?' || byte == '&') && (name == "u=" || name == "p=")) {
            out.Append(name);
            out.Append(kMask);
            // Blanks, quotes and "#" don't end a value: addresses are taken as they come.
            at = std::min(text.find('&', at + name.size()), text.size());
        }
    }
}

/// Appends with every address masked. `isAddress`: an address without a scheme counts too.
void AppendMasked(absl::string_view text, bool isAddress, CXStringEdit& out) {
    constexpr absl::string_view kBehindScheme = "://";
    while (!text.empty()) {
        const size_t found = text.find(kBehindScheme);
        // Behind "!" or "@" it is part of a password.
        const bool hasScheme =
            found != absl::string_view::npos && (!isAddress || text.find_first_of("!@") > found);
        if (!hasScheme && !isAddress) {
            break;
        }
        const size_t start = hasScheme ? found + kBehindScheme.size() : 0;
        const size_t secret = CredentialsLength(text.substr(start));
        AppendMaskedQuery(text.substr(0, start), out);
        if (secret != 0) {
            out.Append(kMask);
        }
        text.remove_prefix(start + secret);
        isAddress = false;
    }
    AppendMaskedQuery(text, out);
}

} // namespace

CXString MaskAddress(absl::string_view address) {
    CXStringEdit out;
    AppendMasked(address, true, out);
    return out.ToString();
}

void AppendMaskedHead(absl::string_view head, CXStringEdit& out) {
    while (!head.empty()) {
        const size_t end = std::min(head.find('\n'), head.size());
        const absl::string_view line = head.substr(0, end);
        head.remove_prefix(std::min(end + 1, head.size()));
        const size_t first = std::min(line.find_first_not_of(" \t"), line.size());
        const size_t colon = line.find(':');
        const absl::string_view name =
            colon < first ? line.substr(0, 0) : line.substr(first, colon - first);
        const bool isSecret =
            colon != absl::string_view::npos &&
            std::any_of(std::begin(kSecretHeaders), std::end(kSecretHeaders),
                        [&](absl::string_view secret) { return EqualsNoCase(name, secret); });
        if (isSecret) {
            out.Append(line.substr(0, colon + 1));
            out.AppendByte(' ');
            out.Append(kMask);
        } else if (colon != absl::string_view::npos && EqualsNoCase(name, "location")) {
            const size_t value = std::min(line.find_first_not_of(" \t", colon + 1), line.size());
            out.Append(line.substr(0, value));
            AppendMasked(line.substr(value), true, out);
        } else {
            // The version behind a request's address is none of it.
            const size_t version = std::min(line.rfind(" HTTP/"), line.size());
            AppendMasked(line.substr(0, version), false, out);
            out.Append(line.substr(version));
        }
        out.AppendByte('\n');
    }
}
