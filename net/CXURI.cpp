#include "net/CXURI.h"

#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "net/CXAddressMask.h"

namespace {

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool IsLetter(char byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

bool IsUnreserved(char byte) {
    return IsDigit(byte) || IsLetter(byte) || byte == '-' || byte == '.' || byte == '_' ||
           byte == '~';
}

int HexDigit(char byte) {
    if (IsDigit(byte)) {
        return byte - '0';
    }
    const char lower = static_cast<char>(AsciiLower(static_cast<unsigned char>(byte)));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

absl::string_view UpToNul(absl::string_view text) {
    return text.substr(0, text.find('\0'));
}

/// First position at or behind `cursor` that holds one of the bytes, else the
/// text's length.
size_t ScanTo(absl::string_view text, size_t cursor, absl::string_view bytes) {
    const size_t found = text.find_first_of(bytes, cursor);
    return found == absl::string_view::npos ? text.size() : found;
}

size_t CountDigits(absl::string_view text, size_t cursor) {
    size_t count = 0;
    while (cursor + count < text.size() && IsDigit(text[cursor + count])) {
        ++count;
    }
    return count;
}

} // namespace

CXURI::CXURI(absl::string_view text) {
    text = UpToNul(text);
    if (!Parse(text)) {
        CXLogFormat("CXURI> bad URI format '%s'", MaskAddress(text).GetData());
        *this = CXURI();
    }
}

bool CXURI::Parse(absl::string_view text) {
    constexpr size_t kMostPortDigits = 5;
    size_t start = 0;
    for (;;) {
        size_t cursor = ScanTo(text, start, ":!@/");
        const CXString token(text.substr(start, cursor - start));
        if (cursor == text.size()) {
            host = token;
            return true;
        }
        switch (text[cursor]) {
        case '!': {
            user = token;
            const size_t at = ScanTo(text, cursor + 1, "@");
            if (at == text.size()) {
                return false;
            }
            password = CXString(text.substr(cursor + 1, at - cursor - 1));
            return ParseHostAfterCredentials(text, at + 1);
        }
        case '@':
            user = token;
            return ParseHostAfterCredentials(text, cursor + 1);
        case '/':
            host = token;
            ParsePath(text, cursor + 1);
            return true;
        default:
            break;
        }
        // A colon: the end of a scheme, or of a host when what follows can only be a port.
        if (scheme.IsEmpty() && text.substr(cursor + 1, 2) == "//") {
            scheme = token;
            scheme.ToLower();
            start = cursor + 3;
            continue;
        }
        const size_t digits = CountDigits(text, cursor + 1);
        if (digits > 0) {
            const size_t behind = cursor + 1 + digits;
            if (digits <= kMostPortDigits && (behind == text.size() || text[behind] == '/')) {
                host = token;
                return ParsePort(text, cursor + 1);
            }
            scheme = token;
        } else if (!token.IsEmpty()) {
            scheme = token;
        }
        start = cursor + 1;
    }
}

bool CXURI::ParseHostAfterCredentials(absl::string_view text, size_t cursor) {
    const size_t end = ScanTo(text, cursor, "/:");
    host = CXString(text.substr(cursor, end - cursor));
    if (end == text.size()) {
        return true;
    }
    if (text[end] == ':') {
        return ParsePort(text, end + 1);
    }
    ParsePath(text, end + 1);
    return true;
}

bool CXURI::ParsePort(absl::string_view text, size_t cursor) {
    uint32_t number = 0;
    for (; cursor < text.size() && IsDigit(text[cursor]); ++cursor) {
        number = number * 10 + static_cast<uint32_t>(text[cursor] - '0');
    }
    port = static_cast<uint16_t>(number);
    if (cursor == text.size()) {
        return true;
    }
    if (text[cursor] != '/') {
        return false;
    }
    ParsePath(text, cursor + 1);
    return true;
}

void CXURI::ParsePath(absl::string_view text, size_t cursor) {
    const size_t end = ScanTo(text, cursor, "?");
    path = CXString(text.substr(cursor, end - cursor));
    if (end < text.size()) {
        query = CXString(text.substr(end + 1));
    }
}

bool CXURI::IsEmpty() const {
    return scheme.IsEmpty() && host.IsEmpty() && port == 0 && user.IsEmpty() &&
           password.IsEmpty() && path.IsEmpty() && query.IsEmpty();
}

CXString CXURI::ToString() const {
    CXStringEdit edit;
    if (!scheme.IsEmpty()) {
        edit.Append(scheme);
        edit.Append("://");
    }
    if (!user.IsEmpty()) {
        edit.Append(user);
        if (!password.IsEmpty()) {
            edit.AppendByte('!');
            edit.Append(password);
        }
        edit.AppendByte('@');
    }
    edit.Append(host);
    if (port != 0) {
        edit.AppendByte(':');
        edit.AppendDecimal(port);
    }
    if (!path.IsEmpty() || !query.IsEmpty()) {
        edit.Append(GetPathAndQuery());
    }
    return edit.ToString();
}

CXString CXURI::GetPathAndQuery() const {
    CXStringEdit edit(absl::string_view("/"));
    edit.Append(path);
    if (!query.IsEmpty()) {
        edit.AppendByte('?');
        edit.Append(query);
    }
    return edit.ToString();
}

CXString CXURI::ToFilePath() const {
    if (!EqualsNoCase(scheme, "file")) {
        return CXString();
    }
    if (!host.IsEmpty()) {
        CXStringEdit edit(absl::string_view("//"));
        edit.Append(host);
        edit.AppendByte('/');
        edit.Append(path);
        return Decode(edit);
    }
    // Decoded before the drive is looked for: our own addresses write it "C%3a/".
    CXStringEdit edit{Decode(path).View()};
    char* bytes = edit.GetData();
    if (edit.GetLength() > 2 && IsLetter(bytes[0]) && (bytes[1] == '|' || bytes[1] == ':') &&
        bytes[2] == '/') {
        bytes[1] = ':';
    } else {
        CXStringEdit rooted(absl::string_view("/"));
        rooted.Append(edit);
        edit = rooted;
    }
    return CXFileSystem::IsValidPath(edit) ? edit.ToString() : CXString();
}

CXString CXURI::Encode(absl::string_view text, absl::string_view extraAllowed) {
    static const char kDigits[] = "0123456789abcdef";
    CXStringEdit edit;
    for (const char byte : UpToNul(text)) {
        if (IsUnreserved(byte) || extraAllowed.find(byte) != absl::string_view::npos) {
            edit.AppendByte(byte);
        } else {
            edit.AppendByte('%');
            edit.AppendByte(kDigits[static_cast<unsigned char>(byte) >> 4]);
            edit.AppendByte(kDigits[static_cast<unsigned char>(byte) & 15]);
        }
    }
    return edit.ToString();
}

CXString CXURI::Decode(absl::string_view text) {
    text = UpToNul(text);
    CXStringEdit edit;
    for (size_t i = 0; i < text.size(); ++i) {
        const char byte = text[i];
        if (byte == '+') {
            edit.AppendByte(' ');
            continue;
        }
        if (byte == '%' && i + 2 < text.size()) {
            const int high = HexDigit(text[i + 1]);
            const int low = HexDigit(text[i + 2]);
            if (high >= 0 && low >= 0) {
                edit.AppendByte(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        edit.AppendByte(byte);
    }
    return edit.ToString();
}
