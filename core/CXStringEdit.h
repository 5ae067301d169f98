// Mutable text buffer with 512 bytes inside the object, for building text on the stack.
#pragma once

#include <absl/strings/str_format.h>
#include <absl/strings/string_view.h>

#include <cstdint>
#include <cstring>
#include <vector>

class CXString;

/// A growing byte buffer. Not NUL-terminated, not shared between threads. When memory runs out an
/// append drops its text and empties the buffer; no operation raises. Sources may lie inside the
/// buffer itself.
class CXStringEdit {
public:
    CXStringEdit();
    explicit CXStringEdit(absl::string_view view);
    CXStringEdit(const CXStringEdit& other);
    CXStringEdit(CXStringEdit&& other) noexcept;
    ~CXStringEdit();
    CXStringEdit& operator=(const CXStringEdit& other);
    CXStringEdit& operator=(CXStringEdit&& other) noexcept;

    /// Empties the buffer and keeps its area.
    void Clear() { m_length = 0; }
    /// Replaces the text.
    void Assign(absl::string_view view);
    /// Appends bytes, NULs included.
    void Append(absl::string_view view) {
        if (view.size() >= m_capacity - m_length) {
            AppendGrowing(view);
        } else if (!view.empty()) {
            std::memmove(m_data + m_length, view.data(), view.size());
            m_length += view.size();
        }
    }
    void AppendByte(char byte) {
        if (m_length <= m_capacity - 2 || Reserve(m_length, 1)) {
            m_data[m_length++] = byte;
        }
    }
    /// Makes room for position + extra bytes plus one; false when that overflows, or when memory is
    /// exhausted (the length is then 0). The room is what AppendByte and Append fill.
    bool Reserve(uint64_t position, uint64_t extra);
    /// Sets the length; new bytes are zero.
    void Resize(uint64_t length);

    /// The bytes, without a NUL behind them; valid until the next change.
    char* GetData() { return m_data; }
    const char* GetData() const { return m_data; }
    size_t GetLength() const { return static_cast<size_t>(m_length); }
    size_t GetCapacity() const { return static_cast<size_t>(m_capacity); }
    bool IsEmpty() const { return m_length == 0; }
    absl::string_view View() const { return absl::string_view(m_data, GetLength()); }
    operator absl::string_view() const { return View(); }
    /// A string of the bytes.
    CXString ToString() const;

    /// Appends printf-like formatted text (`%s` takes a C string); a failed format appends
    /// nothing.
    template <typename... Args> void AppendFormat(const char* format, const Args&... args) {
        const absl::FormatArg list[] = {absl::FormatArg(args)..., absl::FormatArg(0)};
        AppendFormatUntyped(format, absl::Span<const absl::FormatArg>(list, sizeof...(Args)));
    }
    void AppendFormatUntyped(absl::string_view format, absl::Span<const absl::FormatArg> args);

    /// Replaces every non-overlapping occurrence from the left; true if any was replaced.
    bool ReplaceAll(absl::string_view find, absl::string_view replacement);
    /// Replaces each line end (LF, CR, or a pair of the two in either order) by `newline`.
    void NormaliseLineEndings(absl::string_view newline);
    /// Appends a signed 32-bit decimal.
    void AppendDecimal(int32_t value);

    /// abseil sink for str_format.
    friend void AbslFormatFlush(CXStringEdit* edit, absl::string_view part) { edit->Append(part); }

private:
    // The whole area counts: a source may lie behind the end of a buffer that was just cut.
    bool Holds(const char* pointer) const {
        return pointer >= m_data && pointer < m_data + m_capacity;
    }
    void AppendGrowing(absl::string_view view);
    void ReleaseArea();

    char m_inline[512];
    char* m_data;
    uint64_t m_capacity;
    uint64_t m_length;
};

/// Splits at the first occurrence of `separator` (an empty one is never found). Found: true, left
/// and right get the bytes before and behind it. Not found: false, left gets everything, right is
/// cleared.
bool SplitFirst(absl::string_view text, absl::string_view separator, CXStringEdit& left,
                CXStringEdit& right);
/// The same with a code point as separator.
bool SplitFirst(absl::string_view text, uint32_t codePoint, CXStringEdit& left,
                CXStringEdit& right);
/// Splits at LF until nothing remains: "a\n" gives one line, "" none.
void SplitLines(absl::string_view text, std::vector<CXStringEdit>& lines);
