// The program's string type: one machine word, immutable shared text, inline up to six bytes.
#pragma once

#include <absl/strings/str_format.h>
#include <absl/strings/string_view.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

class CXStringEdit;
struct CXStringBlock;

/// One entry of the release table: who gives back the blocks of one release kind.
struct CXReleaseRecord {
    void* context;
    void (*release)(const CXReleaseRecord& record, CXStringBlock* block);
};

/// Header of a shared text; the characters and a NUL follow it.
struct CXStringBlock {
    static constexpr uint64_t kOneReference = 0x100;
    /// Kind of the blocks that the string itself makes.
    static constexpr uint8_t kOwnKind = 2;

    std::atomic<uint64_t> reference; ///< bits 8 to 63: count; bits 0 to 7: release kind
    uint64_t length;                 ///< bytes of text without the NUL
    uint64_t capacity;               ///< bytes of the text area: length + 1

    char* GetText() { return reinterpret_cast<char*>(this + 1); }
    const char* GetText() const { return reinterpret_cast<const char*>(this + 1); }
};
static_assert(sizeof(CXStringBlock) == 24 && std::endian::native == std::endian::little);

/// A byte string (UTF-8 by convention, never validated; NUL bytes allowed) held in one 64-bit word:
/// 0 is empty; low bit 1 is inline text of up to six bytes; else a pointer to a shared, counted
/// block. One object may be read (copied from) and assigned by several threads at once; views and
/// data pointers are valid only while the object lives and isn't assigned, and the data pointer of
/// an inline string lies inside the object itself.
class CXString {
public:
    CXString() noexcept : m_word(0) {}
    /// Null, empty, and pointers within 4,095 bytes of zero give the empty string.
    CXString(const char* text) : m_word(IsNearNull(text) ? 0 : MakeWord(text, std::strlen(text))) {}
    /// Copies `length` bytes, NULs included; null or no bytes give the empty string.
    CXString(const char* data, size_t length) : m_word(MakeWord(data, length)) {}
    CXString(absl::string_view view) : CXString(view.data(), view.size()) {}
    explicit CXString(const CXStringEdit& edit);
    CXString(const CXString& other) noexcept : m_word(other.CopyWord()) {}
    CXString(CXString&& other) noexcept : m_word(other.TakeWord()) {}
    ~CXString() {
        const uint64_t word = m_word.load(std::memory_order_relaxed);
        if (IsShared(word)) {
            Release(word);
        }
    }
    CXString& operator=(const CXString& other) noexcept;
    CXString& operator=(CXString&& other) noexcept;

    /// Takes over one reference to a block whose kind is in the release table. A text of up to six
    /// bytes moves into the word and the block is released.
    static CXString FromBlock(CXStringBlock* block);
    /// Enters a release function, before the first block of that kind is made. Kind 2 is taken.
    static void RegisterRelease(uint8_t kind, const CXReleaseRecord& record);

    /// Length in bytes.
    size_t GetLength() const {
        const uint64_t word = m_word.load(std::memory_order_acquire);
        return IsShared(word) ? static_cast<size_t>(BlockOf(word)->length)
                              : static_cast<size_t>((word & 0xFF) >> 1);
    }
    /// NUL-terminated text; never null.
    const char* GetData() const {
        const uint64_t word = m_word.load(std::memory_order_acquire);
        if (IsShared(word)) {
            return BlockOf(word)->GetText();
        }
        return word == 0 ? kEmptyText : reinterpret_cast<const char*>(&m_word) + 1;
    }
    /// The bytes; valid as long as `GetData`.
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
    bool Less(const CXString& other) const {
        const absl::string_view a = View();
        const absl::string_view b = other.View();
        const bool shorter = a.size() < b.size();
        const int order = std::memcmp(a.data(), b.data(), shorter ? a.size() : b.size());
        return order != 0 ? order < 0 : shorter;
    }
    bool Greater(const CXString& other) const;
    /// Null equals only the empty string.
    bool Equals(const char* text) const;
    bool Equals(const CXString& other) const {
        const uint64_t a = m_word.load(std::memory_order_relaxed);
        const uint64_t b = other.m_word.load(std::memory_order_relaxed);
        return a == b || (IsShared(a) && IsShared(b) && Equals(other.View()));
    }
    bool Equals(absl::string_view view) const;

    /// Sets the string to lower-case hexadecimal of `count` bytes, two digits a byte.
    void ToHex(const void* bytes, size_t count);

    /// Evaluates a printf-like format with typed arguments (`%s` takes a C string). A failed
    /// format gives the empty string. The format may be run-time text, but never a localised one.
    template <typename... Args> static CXString Format(const char* format, const Args&... args) {
        const absl::FormatArg list[] = {absl::FormatArg(args)..., absl::FormatArg(0)};
        return FormatUntyped(format, absl::Span<const absl::FormatArg>(list, sizeof...(Args)));
    }
    /// The same with the arguments in a list.
    static CXString FormatUntyped(absl::string_view format, absl::Span<const absl::FormatArg> args);

    // Hidden friends, so that comparing two views never considers them.
    friend bool operator==(const CXString& a, const CXString& b) { return a.Equals(b); }
    friend bool operator!=(const CXString& a, const CXString& b) { return !a.Equals(b); }
    friend bool operator==(const CXString& a, absl::string_view b) { return a.Equals(b); }
    friend bool operator!=(const CXString& a, absl::string_view b) { return !a.Equals(b); }
    friend bool operator==(const CXString& a, const char* b) { return a.Equals(b); }
    friend bool operator!=(const CXString& a, const char* b) { return !a.Equals(b); }
    friend bool operator<(const CXString& a, const CXString& b) { return a.Less(b); }

    /// The raw word: which form the string has.
    uint64_t GetWord() const { return m_word.load(std::memory_order_relaxed); }
    /// Which of the 64 locks guards the word at `address` (0 to 63).
    static uint32_t LockIndex(uint32_t address) {
        const uint32_t mixed = ((((address >> 6) ^ address) >> 6) ^ address) & 0x7E00;
        return ((address & 0x1F8) ^ (mixed >> 6)) >> 3;
    }

private:
    static constexpr size_t kInlineBytes = 6;
    static const char kEmptyText[1];

    static bool IsShared(uint64_t word) { return word != 0 && (word & 1) == 0; }
    static CXStringBlock* BlockOf(uint64_t word) { return reinterpret_cast<CXStringBlock*>(word); }
    static bool IsNearNull(const char* text) {
        constexpr uintptr_t kReach = 4095;
        return reinterpret_cast<uintptr_t>(text) + kReach <= 2 * kReach;
    }
    static uint64_t MakeWord(const char* data, size_t length) {
        if (data == nullptr || length == 0) {
            return 0;
        }
        if (length > kInlineBytes) {
            return MakeBlockWord(data, length);
        }
        // Byte by byte into one register: quicker than a copy of unknown size.
        uint64_t word = length * 2 + 1;
        for (size_t index = 0; index < length; ++index) {
            word |= static_cast<uint64_t>(static_cast<unsigned char>(data[index]))
                    << (8 * (index + 1));
        }
        return word;
    }
    static uint64_t MakeBlockWord(const char* data, size_t length);
    static CXStringBlock* NewBlock(size_t length);
    static void Release(uint64_t word) noexcept;

    /// The word with a reference of its own. Only a shared word needs the lock: until the count is
    /// raised, an assignment elsewhere must not release the block.
    uint64_t CopyWord() const noexcept {
        const uint64_t word = m_word.load(std::memory_order_relaxed);
        return IsShared(word) ? CopySharedWord() : word;
    }
    uint64_t CopySharedWord() const noexcept;
    /// The word, leaving this empty.
    uint64_t TakeWord() noexcept {
        uint64_t word = m_word.load(std::memory_order_relaxed);
        if (word == 0 || (!IsShared(word) && m_word.compare_exchange_strong(word, 0))) {
            return word;
        }
        return TakeSharedWord();
    }
    uint64_t TakeSharedWord() noexcept;
    /// Stores a word under the lock; returns the old one.
    uint64_t ReplaceWord(uint64_t word) noexcept;
    void ChangeCase(char first, char last);

    std::atomic<uint64_t> m_word;
};
static_assert(sizeof(CXString) == 8 && std::atomic<uint64_t>::is_always_lock_free);

/// CRC-32 based hash of a byte range: seeded with the eight bytes of the length in machine order;
/// of a text above 256 bytes only the first and last 128 bytes count.
uint32_t CXHash(absl::string_view view);

/// Hasher for unordered containers keyed by CXString.
struct CXStringHasher {
    size_t operator()(const CXString& text) const { return CXHash(text.View()); }
};
