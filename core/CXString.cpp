#include "core/CXString.h"

#include "core/BlockAlloc.h"
#include "core/CXStringEdit.h"

#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

const char CXString::kEmptyText[1] = {0};

namespace {

// ---- The locks of string words ----

constexpr uint32_t kLockCount = 64;
constexpr int kSpins = 100;

// A lock for sections of a few instructions: one atomic operation to take, a plain store to give
// back, half the cost of a mutex. Whoever finds it taken for long sleeps, so that a holder of a
// lower priority gets on. Plain data, so that static strings can use it at any time.
class alignas(64) WordLock {
public:
    void lock() {
        while (m_taken.exchange(true, std::memory_order_acquire)) {
            Wait();
        }
    }
    void unlock() { m_taken.store(false, std::memory_order_release); }

private:
    void Wait() const {
        for (int spin = 0; spin < kSpins; ++spin) {
            if (!m_taken.load(std::memory_order_relaxed)) {
                return;
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }

    std::atomic<bool> m_taken{false};
};

constinit WordLock g_locks[kLockCount];

uint32_t IndexOf(const CXString* string) {
    return CXString::LockIndex(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(string)));
}

// Holds the locks of two words. Both are needed, since each word may be in use with a third one;
// taken in index order, so that two assignments in opposite directions can't block each other.
class PairGuard {
public:
    PairGuard(const CXString* a, const CXString* b)
        : m_low(std::min(IndexOf(a), IndexOf(b))), m_high(std::max(IndexOf(a), IndexOf(b))) {
        g_locks[m_low].lock();
        if (m_high != m_low) {
            g_locks[m_high].lock();
        }
    }
    ~PairGuard() {
        if (m_high != m_low) {
            g_locks[m_high].unlock();
        }
        g_locks[m_low].unlock();
    }
    PairGuard(const PairGuard&) = delete;
    PairGuard& operator=(const PairGuard&) = delete;

private:
    const uint32_t m_low;
    const uint32_t m_high;
};

// ---- The release table ----

size_t BlockSize(uint64_t capacity) {
    return sizeof(CXStringBlock) + std::max<size_t>(static_cast<size_t>(capacity), 4);
}

void ReleaseOwnBlock(const CXReleaseRecord&, CXStringBlock* block) {
    const size_t size = BlockSize(block->capacity);
    block->~CXStringBlock();
    BlockAlloc::Free(block, size);
}

// Indexed by the low byte of the reference word. Plain data, filled at compile time, so that static
// strings can be made before and released after everything else.
constinit CXReleaseRecord g_releaseTable[256] = {
    {nullptr, nullptr}, {nullptr, nullptr}, {nullptr, ReleaseOwnBlock}};

} // namespace

// ---- Words and blocks ----

CXStringBlock* CXString::NewBlock(size_t length) {
    if (length > SIZE_MAX / 2) {
        return nullptr;
    }
    void* area = BlockAlloc::Allocate(BlockSize(length + 1));
    if (area == nullptr) {
        return nullptr;
    }
    auto* block = ::new (area) CXStringBlock;
    block->reference.store(CXStringBlock::kOneReference | CXStringBlock::kOwnKind,
                           std::memory_order_relaxed);
    block->length = length;
    block->capacity = length + 1;
    block->GetText()[length] = 0;
    return block;
}

uint64_t CXString::MakeBlockWord(const char* data, size_t length) {
    CXStringBlock* block = NewBlock(length);
    if (block == nullptr) {
        return 0;
    }
    std::memcpy(block->GetText(), data, length);
    return reinterpret_cast<uint64_t>(block);
}

void CXString::Release(uint64_t word) noexcept {
    CXStringBlock* block = BlockOf(word);
    // A single reference is ours alone: nobody else can raise the count any more.
    uint64_t before = block->reference.load(std::memory_order_acquire);
    if (before >= 2 * CXStringBlock::kOneReference) {
        before =
            block->reference.fetch_sub(CXStringBlock::kOneReference, std::memory_order_acq_rel);
    }
    if (static_cast<int64_t>(before - CXStringBlock::kOneReference) <
        static_cast<int64_t>(CXStringBlock::kOneReference)) {
        const CXReleaseRecord& record = g_releaseTable[before & 0xFF];
        record.release(record, block);
    }
}

void CXString::RegisterRelease(uint8_t kind, const CXReleaseRecord& record) {
    if (kind != CXStringBlock::kOwnKind) {
        g_releaseTable[kind] = record;
    }
}

CXString CXString::FromBlock(CXStringBlock* block) {
    CXString result;
    if (block == nullptr) {
        return result;
    }
    const auto word = reinterpret_cast<uint64_t>(block);
    if (block->length > kInlineBytes) {
        result.m_word.store(word, std::memory_order_release);
    } else {
        result.m_word.store(MakeWord(block->GetText(), static_cast<size_t>(block->length)),
                            std::memory_order_relaxed);
        Release(word);
    }
    return result;
}

uint64_t CXString::CopySharedWord() const noexcept {
    const std::lock_guard<WordLock> guard(g_locks[IndexOf(this)]);
    const uint64_t word = m_word.load(std::memory_order_acquire);
    if (IsShared(word)) {
        BlockOf(word)->reference.fetch_add(CXStringBlock::kOneReference, std::memory_order_relaxed);
    }
    return word;
}

// Under the lock a shared word is ours to replace; one without a block may change at any moment.
uint64_t CXString::ReplaceWord(uint64_t word) noexcept {
    const uint64_t old = m_word.load(std::memory_order_acquire);
    if (!IsShared(old)) {
        return m_word.exchange(word, std::memory_order_acq_rel);
    }
    m_word.store(word, std::memory_order_release);
    return old;
}

uint64_t CXString::TakeSharedWord() noexcept {
    const std::lock_guard<WordLock> guard(g_locks[IndexOf(this)]);
    return ReplaceWord(0);
}

// ---- Construction and assignment ----

CXString::CXString(const CXStringEdit& edit) : CXString(edit.GetData(), edit.GetLength()) {}

// Words without a block need no lock to change: nobody can be about to add a reference to them.

CXString& CXString::operator=(const CXString& other) noexcept {
    uint64_t old = m_word.load(std::memory_order_relaxed);
    uint64_t word = other.m_word.load(std::memory_order_relaxed);
    if (word == old) {
        return *this;
    }
    if (!IsShared(word) && !IsShared(old) && m_word.compare_exchange_strong(old, word)) {
        return *this;
    }
    {
        const PairGuard guard(this, &other);
        word = other.m_word.load(std::memory_order_acquire);
        if (IsShared(word)) {
            BlockOf(word)->reference.fetch_add(CXStringBlock::kOneReference,
                                               std::memory_order_relaxed);
        }
        old = ReplaceWord(word);
    }
    if (IsShared(old)) {
        Release(old);
    }
    return *this;
}

CXString& CXString::operator=(CXString&& other) noexcept {
    uint64_t old = m_word.load(std::memory_order_relaxed);
    uint64_t word = other.m_word.load(std::memory_order_relaxed);
    if (word == old) {
        return *this;
    }
    if (!IsShared(word) && !IsShared(old) && other.m_word.compare_exchange_strong(word, 0)) {
        if (m_word.compare_exchange_strong(old, word)) {
            return *this;
        }
        const std::lock_guard<WordLock> guard(g_locks[IndexOf(this)]);
        old = ReplaceWord(word);
    } else {
        const PairGuard guard(this, &other);
        word = other.ReplaceWord(0);
        old = ReplaceWord(word);
    }
    if (IsShared(old)) {
        Release(old);
    }
    return *this;
}

void CXString::Clear() {
    const uint64_t old = TakeWord();
    if (IsShared(old)) {
        Release(old);
    }
}

// ---- Parts ----

CXString CXString::Left(int64_t count) const {
    const size_t length = GetLength();
    if (count <= 0) {
        return CXString();
    }
    return static_cast<uint64_t>(count) >= length ? *this
                                                  : CXString(GetData(), static_cast<size_t>(count));
}

CXString CXString::Right(int64_t count) const {
    const size_t length = GetLength();
    if (count <= 0) {
        return CXString();
    }
    if (static_cast<uint64_t>(count) >= length) {
        return *this;
    }
    const auto bytes = static_cast<size_t>(count);
    return CXString(GetData() + (length - bytes), bytes);
}

absl::string_view CXString::Mid(size_t start, size_t end) const {
    const absl::string_view view = View();
    end = std::min(end, view.size());
    return start >= end ? absl::string_view(kEmptyText, 0) : view.substr(start, end - start);
}

void CXString::Remove(int64_t start, int64_t end) {
    const absl::string_view view = View();
    const auto length = static_cast<int64_t>(view.size());
    start = std::max<int64_t>(start, 0);
    end = std::min(end, length);
    if (start >= end) {
        return;
    }
    CXStringEdit rest;
    rest.Append(view.substr(0, static_cast<size_t>(start)));
    rest.Append(view.substr(static_cast<size_t>(end)));
    *this = CXString(rest);
}

// Moves the letters from `first` to `last` to the other case. A block may be shared, so the text
// is changed in a copy.
void CXString::ChangeCase(char first, char last) {
    const absl::string_view view = View();
    const auto isMeant = [=](char byte) { return byte >= first && byte <= last; };
    if (std::none_of(view.begin(), view.end(), isMeant)) {
        return;
    }
    CXString changed(view);
    char* text = IsShared(changed.GetWord()) ? BlockOf(changed.GetWord())->GetText()
                                             : reinterpret_cast<char*>(&changed.m_word) + 1;
    const size_t length = changed.GetLength();
    for (size_t index = 0; index < length; ++index) {
        if (isMeant(text[index])) {
            text[index] = static_cast<char>(text[index] ^ 0x20);
        }
    }
    *this = static_cast<CXString&&>(changed);
}

void CXString::ToUpper() {
    ChangeCase('a', 'z');
}

void CXString::ToLower() {
    ChangeCase('A', 'Z');
}

int64_t CXString::FindChar(char byte) const {
    const absl::string_view view = View();
    const void* found = std::memchr(view.data(), byte, view.size());
    return found == nullptr ? -1 : static_cast<const char*>(found) - view.data();
}

// ---- Comparison ----

bool CXString::Greater(const CXString& other) const {
    const absl::string_view a = View();
    const absl::string_view b = other.View();
    const size_t common = std::min(a.size(), b.size());
    for (size_t index = 0; index < common; ++index) {
        if (a[index] != b[index]) {
            return static_cast<signed char>(a[index]) > static_cast<signed char>(b[index]);
        }
    }
    return a.size() > b.size();
}

bool CXString::Equals(const char* text) const {
    return text == nullptr ? IsEmpty() : Equals(absl::string_view(text, std::strlen(text)));
}

bool CXString::Equals(absl::string_view view) const {
    return GetLength() == view.size() &&
           (view.empty() || std::memcmp(GetData(), view.data(), view.size()) == 0);
}

// ---- Making text ----

void CXString::ToHex(const void* bytes, size_t count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    CXStringEdit text;
    const auto* source = static_cast<const unsigned char*>(bytes);
    for (size_t index = 0; index < count; ++index) {
        text.AppendByte(kDigits[source[index] >> 4]);
        text.AppendByte(kDigits[source[index] & 15]);
    }
    *this = CXString(text);
}

CXString CXString::FormatUntyped(absl::string_view format, absl::Span<const absl::FormatArg> args) {
    CXStringEdit text;
    text.AppendFormatUntyped(format, args);
    return CXString(text);
}

uint32_t CXHash(absl::string_view view) {
    constexpr uint64_t kWholeLimit = 256;
    constexpr unsigned kEndBytes = 128;
    const uint64_t length = view.size();
    const auto* bytes = reinterpret_cast<const Bytef*>(view.data());
    uLong crc = ::crc32(0, reinterpret_cast<const Bytef*>(&length), sizeof(length));
    if (length > kWholeLimit) {
        crc = ::crc32(crc, bytes, kEndBytes);
        crc = ::crc32(crc, bytes + (length - kEndBytes), kEndBytes);
    } else if (length != 0) {
        crc = ::crc32(crc, bytes, static_cast<uInt>(length));
    }
    return static_cast<uint32_t>(crc);
}
