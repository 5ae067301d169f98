#include "core/CXText.h"

#include "core/CXStringEdit.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace {

struct CaseFoldRow {
    uint32_t code;
    uint32_t status;    // the status letter of CaseFolding.txt
    uint32_t folded[3]; // 0: unused
};

constexpr CaseFoldRow kCaseFoldTable[] = {
#include "core/CXCaseFoldTable.inc"
};

constexpr uint32_t kFaultCode = 0x3F;

// std::from_chars knows no locale, no leading blanks and no plus sign: just what is wanted here.
template <typename T> bool ParseFront(absl::string_view& cursor, T& out) {
    const std::from_chars_result end =
        std::from_chars(cursor.data(), cursor.data() + cursor.size(), out, 10);
    if (end.ec != std::errc()) {
        out = 0;
        return false;
    }
    cursor.remove_prefix(static_cast<size_t>(end.ptr - cursor.data()));
    return true;
}

template <typename T> T ParseWhole(absl::string_view view, T defaultValue) {
    T value = 0;
    return ParseFront(view, value) && view.empty() ? value : defaultValue;
}

unsigned char ByteAt(absl::string_view view, size_t index) {
    return index < view.size() ? static_cast<unsigned char>(view[index]) : 0;
}

// Appends the folding of one code point: that of its row with status C or F, else itself.
void AppendFoldedCode(CXStringEdit& edit, uint32_t code) {
    const CaseFoldRow* end = std::end(kCaseFoldTable);
    const CaseFoldRow* row =
        std::lower_bound(std::begin(kCaseFoldTable), end, code,
                         [](const CaseFoldRow& entry, uint32_t key) { return entry.code < key; });
    for (; row != end && row->code == code; ++row) {
        if (row->status == 'C' || row->status == 'F') {
            for (const uint32_t folded : row->folded) {
                if (folded != 0) {
                    AppendCodePoint(edit, folded);
                }
            }
            return;
        }
    }
    AppendCodePoint(edit, code);
}

} // namespace

bool ParseInt64(absl::string_view& cursor, int64_t& out) {
    return ParseFront(cursor, out);
}

bool ParseInt32(absl::string_view& cursor, int32_t& out) {
    return ParseFront(cursor, out);
}

int64_t ToInt64(absl::string_view view, int64_t defaultValue) {
    return ParseWhole(view, defaultValue);
}

int32_t ToInt32(absl::string_view view) {
    return ParseWhole<int32_t>(view, 0);
}

uint64_t ToUInt64(absl::string_view view, uint64_t defaultValue) {
    return ParseWhole(view, defaultValue);
}

bool DecodeCodePoint(absl::string_view view, uint32_t& code, uint32_t& size) {
    code = kFaultCode;
    size = 0;
    if (view.empty()) {
        return false;
    }
    const uint32_t lead = ByteAt(view, 0);
    if (lead < 0x80) {
        code = lead;
        size = 1;
        return true;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return false;
    }
    const uint32_t bytes = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (view.size() < bytes) {
        return false;
    }
    uint32_t value = lead & (0x7Fu >> bytes);
    for (uint32_t index = 1; index < bytes; ++index) {
        const uint32_t next = ByteAt(view, index);
        if ((next & 0xC0) != 0x80) {
            return false;
        }
        value = (value << 6) | (next & 0x3F);
    }
    // The top code counts as a fault too; overlong forms behind a legal lead do not.
    if ((value >= 0xD800 && value <= 0xDFFF) || value >= 0x10FFFF) {
        return false;
    }
    code = value;
    size = bytes;
    return true;
}

bool AppendCodePoint(CXStringEdit& edit, uint32_t code) {
    // Each threshold is one below the usual one, so 0x7F, 0x7FF and 0xFFFF take the longer form.
    // Stored texts depend on it.
    if (code > 0x10FFFF) {
        return false;
    }
    const auto tail = [code](uint32_t shift) {
        return static_cast<char>(0x80 | ((code >> shift) & 0x3F));
    };
    if (code < 0x7F) {
        edit.AppendByte(static_cast<char>(code));
    } else if (code < 0x7FF) {
        edit.AppendByte(static_cast<char>(0xC0 | (code >> 6)));
        edit.AppendByte(tail(0));
    } else if (code < 0xFFFF) {
        edit.AppendByte(static_cast<char>(0xE0 | (code >> 12)));
        edit.AppendByte(tail(6));
        edit.AppendByte(tail(0));
    } else {
        edit.AppendByte(static_cast<char>(0xF0 | (code >> 18)));
        edit.AppendByte(tail(12));
        edit.AppendByte(tail(6));
        edit.AppendByte(tail(0));
    }
    return true;
}

uint32_t CodePointSize(absl::string_view view) {
    uint32_t code = 0;
    uint32_t size = 0;
    if (DecodeCodePoint(view, code, size)) {
        return size;
    }
    return view.empty() ? 0 : 1;
}

bool IsUTF8(absl::string_view view) {
    while (!view.empty()) {
        uint32_t code = 0;
        uint32_t size = 0;
        if (!DecodeCodePoint(view, code, size)) {
            return false;
        }
        view.remove_prefix(size);
    }
    return true;
}

uint64_t CountCodePoints(absl::string_view view) {
    uint64_t count = 0;
    for (; !view.empty(); ++count) {
        view.remove_prefix(CodePointSize(view));
    }
    return count;
}

bool EqualsNoCase(absl::string_view a, absl::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t index = 0; index < a.size(); ++index) {
        if (AsciiLower(ByteAt(a, index)) != AsciiLower(ByteAt(b, index))) {
            return false;
        }
    }
    return true;
}

int CompareNoCase(absl::string_view a, absl::string_view b, bool asciiOnly) {
    for (size_t index = 0;; ++index) {
        const unsigned char fromA = ByteAt(a, index);
        const unsigned char fromB = ByteAt(b, index);
        if (!asciiOnly && (fromA >= 0x80 || fromB >= 0x80)) {
            CXStringEdit foldedA;
            CXStringEdit foldedB;
            AppendCaseFolded(foldedA, a.substr(std::min(index, a.size())));
            AppendCaseFolded(foldedB, b.substr(std::min(index, b.size())));
            return CompareNoCase(foldedA.View(), foldedB.View(), true);
        }
        const int difference = AsciiLower(fromA) - AsciiLower(fromB);
        if (difference != 0) {
            return difference < 0 ? -1 : 1;
        }
        if (index >= a.size() || index >= b.size()) {
            return 0;
        }
    }
}

void AppendCaseFolded(CXStringEdit& edit, absl::string_view text) {
    while (!text.empty()) {
        uint32_t code = 0;
        uint32_t size = 0;
        if (!DecodeCodePoint(text, code, size)) {
            edit.AppendByte(text[0]);
            size = 1;
        } else if (code < 0x7F) {
            edit.AppendByte(static_cast<char>(AsciiLower(static_cast<unsigned char>(code))));
        } else {
            AppendFoldedCode(edit, code);
        }
        text.remove_prefix(size);
    }
}
