#include "core/CXMD5.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr size_t kBlockBytes = 64;

// The step functions of RFC 1321, each with the word that the step before has just made (b) on the
// shortest path; the speed of MD5 is that of its chain of dependent operations.
struct RoundF {
    static uint32_t Mix(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
        return a + (d ^ (b & (c ^ d)));
    }
};

struct RoundG {
    // The two halves have no bit in common, so they may be added one by one, and the half without
    // b is ready long before b is.
    static uint32_t Mix(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
        uint32_t early = a + (~d & c);
        // Keeps the compiler from regrouping the sum.
        __asm__("" : "+r"(early));
        return early + (d & b);
    }
};

struct RoundH {
    static uint32_t Mix(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
        return a + (b ^ (c ^ d));
    }
};

struct RoundI {
    static uint32_t Mix(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
        return a + (c ^ (b | ~d));
    }
};

template <typename Round>
inline void Step(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t word, uint32_t constant,
                 int shift) {
    a = std::rotl(Round::Mix(a + (word + constant), b, c, d), shift) + b;
}

void Compress(uint32_t state[4], const unsigned char* data, size_t blocks) {
    uint32_t a = state[0];
    uint32_t b = state[1];
    uint32_t c = state[2];
    uint32_t d = state[3];
    for (; blocks != 0; --blocks, data += kBlockBytes) {
        const uint32_t a0 = a;
        const uint32_t b0 = b;
        const uint32_t c0 = c;
        const uint32_t d0 = d;
        // The words in the block's own order, which is the machine's.
        const auto w = [data](size_t index) {
            uint32_t word;
            std::memcpy(&word, data + index * sizeof(word), sizeof(word));
            return word;
        };
        Step<RoundF>(a, b, c, d, w(0), 0xd76aa478, 7);
        Step<RoundF>(d, a, b, c, w(1), 0xe8c7b756, 12);
        Step<RoundF>(c, d, a, b, w(2), 0x242070db, 17);
        Step<RoundF>(b, c, d, a, w(3), 0xc1bdceee, 22);
        Step<RoundF>(a, b, c, d, w(4), 0xf57c0faf, 7);
        Step<RoundF>(d, a, b, c, w(5), 0x4787c62a, 12);
        Step<RoundF>(c, d, a, b, w(6), 0xa8304613, 17);
        Step<RoundF>(b, c, d, a, w(7), 0xfd469501, 22);
        Step<RoundF>(a, b, c, d, w(8), 0x698098d8, 7);
        Step<RoundF>(d, a, b, c, w(9), 0x8b44f7af, 12);
        Step<RoundF>(c, d, a, b, w(10), 0xffff5bb1, 17);
        Step<RoundF>(b, c, d, a, w(11), 0x895cd7be, 22);
        Step<RoundF>(a, b, c, d, w(12), 0x6b901122, 7);
        Step<RoundF>(d, a, b, c, w(13), 0xfd987193, 12);
        Step<RoundF>(c, d, a, b, w(14), 0xa679438e, 17);
        Step<RoundF>(b, c, d, a, w(15), 0x49b40821, 22);
        Step<RoundG>(a, b, c, d, w(1), 0xf61e2562, 5);
        Step<RoundG>(d, a, b, c, w(6), 0xc040b340, 9);
        Step<RoundG>(c, d, a, b, w(11), 0x265e5a51, 14);
        Step<RoundG>(b, c, d, a, w(0), 0xe9b6c7aa, 20);
        Step<RoundG>(a, b, c, d, w(5), 0xd62f105d, 5);
        Step<RoundG>(d, a, b, c, w(10), 0x02441453, 9);
        Step<RoundG>(c, d, a, b, w(15), 0xd8a1e681, 14);
        Step<RoundG>(b, c, d, a, w(4), 0xe7d3fbc8, 20);
        Step<RoundG>(a, b, c, d, w(9), 0x21e1cde6, 5);
        Step<RoundG>(d, a, b, c, w(14), 0xc33707d6, 9);
        Step<RoundG>(c, d, a, b, w(3), 0xf4d50d87, 14);
        Step<RoundG>(b, c, d, a, w(8), 0x455a14ed, 20);
        Step<RoundG>(a, b, c, d, w(13), 0xa9e3e905, 5);
        Step<RoundG>(d, a, b, c, w(2), 0xfcefa3f8, 9);
        Step<RoundG>(c, d, a, b, w(7), 0x676f02d9, 14);
        Step<RoundG>(b, c, d, a, w(12), 0x8d2a4c8a, 20);
        Step<RoundH>(a, b, c, d, w(5), 0xfffa3942, 4);
        Step<RoundH>(d, a, b, c, w(8), 0x8771f681, 11);
        Step<RoundH>(c, d, a, b, w(11), 0x6d9d6122, 16);
        Step<RoundH>(b, c, d, a, w(14), 0xfde5380c, 23);
        Step<RoundH>(a, b, c, d, w(1), 0xa4beea44, 4);
        Step<RoundH>(d, a, b, c, w(4), 0x4bdecfa9, 11);
        Step<RoundH>(c, d, a, b, w(7), 0xf6bb4b60, 16);
        Step<RoundH>(b, c, d, a, w(10), 0xbebfbc70, 23);
        Step<RoundH>(a, b, c, d, w(13), 0x289b7ec6, 4);
        Step<RoundH>(d, a, b, c, w(0), 0xeaa127fa, 11);
        Step<RoundH>(c, d, a, b, w(3), 0xd4ef3085, 16);
        Step<RoundH>(b, c, d, a, w(6), 0x04881d05, 23);
        Step<RoundH>(a, b, c, d, w(9), 0xd9d4d039, 4);
        Step<RoundH>(d, a, b, c, w(12), 0xe6db99e5, 11);
        Step<RoundH>(c, d, a, b, w(15), 0x1fa27cf8, 16);
        Step<RoundH>(b, c, d, a, w(2), 0xc4ac5665, 23);
        Step<RoundI>(a, b, c, d, w(0), 0xf4292244, 6);
        Step<RoundI>(d, a, b, c, w(7), 0x432aff97, 10);
        Step<RoundI>(c, d, a, b, w(14), 0xab9423a7, 15);
        Step<RoundI>(b, c, d, a, w(5), 0xfc93a039, 21);
        Step<RoundI>(a, b, c, d, w(12), 0x655b59c3, 6);
        Step<RoundI>(d, a, b, c, w(3), 0x8f0ccc92, 10);
        Step<RoundI>(c, d, a, b, w(10), 0xffeff47d, 15);
        Step<RoundI>(b, c, d, a, w(1), 0x85845dd1, 21);
        Step<RoundI>(a, b, c, d, w(8), 0x6fa87e4f, 6);
        Step<RoundI>(d, a, b, c, w(15), 0xfe2ce6e0, 10);
        Step<RoundI>(c, d, a, b, w(6), 0xa3014314, 15);
        Step<RoundI>(b, c, d, a, w(13), 0x4e0811a1, 21);
        Step<RoundI>(a, b, c, d, w(4), 0xf7537e82, 6);
        Step<RoundI>(d, a, b, c, w(11), 0xbd3af235, 10);
        Step<RoundI>(c, d, a, b, w(2), 0x2ad7d2bb, 15);
        Step<RoundI>(b, c, d, a, w(9), 0xeb86d391, 21);
        a += a0;
        b += b0;
        c += c0;
        d += d0;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

} // namespace

CXMD5::CXMD5() : m_state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, m_pending{} {}

void CXMD5::Update(const void* data, size_t count) {
    if (count == 0) {
        return;
    }
    const auto* bytes = static_cast<const unsigned char*>(data);
    const size_t held = m_length % kBlockBytes;
    m_length += count;
    if (held != 0) {
        const size_t taken = std::min(count, kBlockBytes - held);
        std::memcpy(m_pending + held, bytes, taken);
        if (held + taken < kBlockBytes) {
            return;
        }
        Compress(m_state, m_pending, 1);
        bytes += taken;
        count -= taken;
    }
    Compress(m_state, bytes, count / kBlockBytes);
    const size_t rest = count % kBlockBytes;
    if (rest != 0) {
        std::memcpy(m_pending, bytes + (count - rest), rest);
    }
}

void CXMD5::Finish(uint8_t digest[16]) {
    static constexpr unsigned char kPadding[kBlockBytes] = {0x80};
    constexpr size_t kLengthAt = 56;
    const uint64_t bits = m_length * 8;
    const size_t held = m_length % kBlockBytes;
    Update(kPadding, held < kLengthAt ? kLengthAt - held : kLengthAt + kBlockBytes - held);
    Update(&bits, sizeof(bits));
    static_assert(sizeof(m_state) == 16 && std::endian::native == std::endian::little);
    std::memcpy(digest, m_state, sizeof(m_state));
}

CXString CXMD5::FinishHex() {
    uint8_t digest[16];
    Finish(digest);
    CXString text;
    text.ToHex(digest, sizeof(digest));
    return text;
}

CXString CXMD5::OfBlock(const void* data, size_t count) {
    CXMD5 digest;
    digest.Update(data, count);
    return digest.FinishHex();
}
