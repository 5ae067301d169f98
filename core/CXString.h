// The program's string type: one machine word, immutable shared text, inline up to six bytes.
#pragma once

#include <absl/strings/str_format.h>
#include <absl/strings/string_view.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

class CXStringEdit;

/// A byte string (UTF-8 by convention, never validated; NUL bytes allowed) held in one 64-bit word:
/// 0 is empty; low bit 1 is inline text of up to six bytes; else a pointer to a shared, counted
/// block. One object may be read (copied from) and assigned by several threads at once; views and
/// data pointers are valid only while the object lives and isn't assigned, and the data pointer of
/// an inline string lies inside the object itself.
class CXString {
public:
    CXString() noexcept : m_word(0) {}
    /// Null, empty, and pointers within 4,095 bytes of zero give the empty string.
    CXString(const char* text);
    CXString(const char* data, size_t length);
    CXString(absl::string_view view) : CXString(view.data(), view.size()) {}
    explicit CXString(const CXStringEdit& edit);
    CXString(const CXString& other);
    CXString(CXString&& other) noexcept;
    ~CXString();
    CXString& operator=(const CXString& other);
    CXString& operator=(CXString&& other) noexcept;

    /// Length in bytes.
    size_t GetLength() const;
    /// NUL-terminated text; never null.
    const char* GetData() const;
    absl::string_view View() const { return absl::string_view(GetData(), GetLength()); }
    operator absl::string_view() const { return View(); }
    bool IsEmpty() const { return m_word.load(std::memory_order_relaxed) == 0; }

    /// Empties the string.
    void Clear();

    /// The first `count` bytes; negative counts as 0.
    CXString Left(int64_t count) const;
    /// The last `count` bytes; negative counts as 0.
    CXString Right(int64_t count) const;
    /// View of the bytes from start to end (clamped to the length).
    absl::string_view Mid(size_t start, size_t end) const;
    /// Removes the bytes from start to end in place; negative start counts as 0, end is clamped.
    void Remove(int64_t start, int64_t end);
    /// Changes ASCII letters in place.
    void ToUpper();
    void ToLower();
    /// First index of a byte, or -1.
    int64_t FindChar(char byte) const;

    /// Map orders: `Less` by unsigned bytes, `Greater` by the signed difference of the first
    /// unequal bytes; a proper prefix counts as smaller.
    bool Less(const CXString& other) const;
    bool Greater(const CXString& other) const;
    /// Null equals only the empty string.
    bool Equals(const char* text) const;
    bool Equals(const CXString& other) const;
    bool Equals(absl::string_view view) const;

    /// Sets the string to lower-case hexadecimal of `count` bytes, two digits a byte.
    void ToHex(const void* bytes, size_t count);

    /// Evaluates a printf-like format with typed arguments (`%s` takes a C string). A failed
    /// format gives the empty string. The format may be run-time text, but never a localised one.
    template <typename... Args>
    static CXString Format(const char* format, const Args&... args) {
        const absl::FormatArg list[] = {absl::FormatArg(args)..., absl::FormatArg(0)};
        return FormatUntyped(format, absl::Span<const absl::FormatArg>(list, sizeof...(Args)));
    }
    static CXString FormatUntyped(absl::string_view format,
                                  absl::Span<const absl::FormatArg> args);

    /// The raw word (for tests and the tree's inline numbers).
    uint64_t GetWord() const { return m_word.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> m_word;
};

inline bool operator==(const CXString& a, const CXString& b) { return a.Equals(b); }
inline bool operator!=(const CXString& a, const CXString& b) { return !a.Equals(b); }
inline bool operator==(const CXString& a, const char* b) { return a.Equals(b); }
inline bool operator!=(const CXString& a, const char* b) { return !a.Equals(b); }
inline bool operator<(const CXString& a, const CXString& b) { return a.Less(b); }

/// CRC-32 based hash of a byte range: seeded with the eight bytes of the length in machine order;
/// of a text above 256 bytes only the first and last 128 bytes count.
uint32_t CXHash(absl::string_view view);

/// Hasher for unordered containers keyed by CXString.
struct CXStringHasher {
    size_t operator()(const CXString& text) const { return CXHash(text.View()); }
};
