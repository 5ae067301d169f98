// Inflating ahead must not show: the same bytes, failures and source reads as without a thread.

#include "core/CXMD5.h"
#include "runtime/CXThread.h"
#include "stream/CXStreamInflateAhead.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"
#include "tests/stream/StreamKinds.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

namespace {

constexpr uint64_t kPiece = CXStreamInflateAhead::kPieceSize;

/// A source that notes when it is read, as positions of the stream that inflates it. From
/// `failAt` on it fails as a broken disk does.
class WatchedSource : public CXStream {
public:
    explicit WatchedSource(const Bytes& bytes, uint64_t failAt = UINT64_MAX)
        : m_bytes(bytes), m_failAt(failAt) {
        m_flags = kCXStreamReadable | kCXStreamIsOpen;
    }
    uint64_t BufferedRead(void* data, uint64_t count) override {
        EXPECT_EQ(std::this_thread::get_id(), m_owner);
        m_reads.push_back(m_reader != nullptr ? m_reader->GetPosition() : 0);
        const uint64_t position = GetPosition();
        const uint64_t end = std::min<uint64_t>(m_bytes.size(), m_failAt);
        const uint64_t got = std::min(count, end - position);
        std::copy_n(m_bytes.begin() + static_cast<int64_t>(position), got,
                    static_cast<uint8_t*>(data));
        m_windowOffset += got;
        if (got < count) {
            SetError(m_failAt < m_bytes.size() ? kCXResultNoResources : kCXResultEndOfStream);
        }
        return got;
    }
    const CXStream* m_reader = nullptr;
    std::vector<uint64_t> m_reads;

private:
    const Bytes& m_bytes;
    uint64_t m_failAt;
    std::thread::id m_owner = std::this_thread::get_id();
};

struct Outcome {
    Bytes bytes;
    CXResult result = kCXResultOK;
    bool isAtEnd = false;
    bool operator==(const Outcome&) const = default;
};

/// Reads to the end in pieces of random sizes up to `largest`, stopping at times to let the other
/// thread come ahead.
Outcome ReadAll(CXStream& stream, uint32_t seed, size_t largest) {
    std::mt19937 random(seed);
    Outcome outcome;
    Bytes part(largest);
    for (;;) {
        const uint64_t wanted = 1 + random() % largest;
        const uint64_t got = stream.Read(part.data(), wanted);
        outcome.bytes.insert(outcome.bytes.end(), part.begin(),
                             part.begin() + static_cast<int64_t>(got));
        EXPECT_EQ(stream.GetPosition(), outcome.bytes.size());
        if (got < wanted) {
            break;
        }
        if (random() % 64 == 0) {
            std::this_thread::yield();
        }
    }
    outcome.result = stream.GetLastError();
    outcome.isAtEnd = stream.IsAtEnd();
    return outcome;
}

Outcome ReadPlainly(const Bytes& deflated) {
    CXStreamStaticBuffer source(deflated.data(), deflated.size());
    StreamProcessorZLibDecompress inflater;
    CXStreamProcessorWrapper stream(inflater, &source, nullptr);
    return ReadAll(stream, 1, 30000);
}

Outcome ReadAhead(const Bytes& deflated, uint32_t seed, size_t largest,
                  std::vector<uint64_t>& reads, uint64_t failAt = UINT64_MAX) {
    WatchedSource source(deflated, failAt);
    StreamProcessorZLibDecompress inflater;
    CXStreamInflateAhead stream(inflater, source);
    source.m_reader = &stream;
    const Outcome outcome = ReadAll(stream, seed, largest);
    // For good.
    uint8_t byte = 0;
    stream.ResetError();
    EXPECT_FALSE(stream.ReadU8(byte));
    EXPECT_EQ(stream.GetLastError(), outcome.result);
    reads = source.m_reads;
    return outcome;
}

/// Bytes of every kind in stretches: text-like, noise, and long runs.
Bytes Varied(size_t size) {
    Bytes bytes = MakeBytes(size);
    for (size_t i = 0; i < size; ++i) {
        const size_t kind = (i >> 17) % 4;
        if (kind == 1) {
            bytes[i] = 0;
        } else if (kind == 2) {
            bytes[i] = static_cast<uint8_t>("the quick brown fox "[(i * i >> 9) % 20]);
        }
    }
    return bytes;
}

/// A zlib stream of empty stored blocks, which give nothing for a long while, and then "abc".
Bytes LongSilence(size_t blocks) {
    Bytes deflated = {0x78, 0x9C};
    for (size_t i = 0; i < blocks; ++i) {
        deflated.insert(deflated.end(), {0x00, 0x00, 0x00, 0xFF, 0xFF});
    }
    deflated.insert(deflated.end(), {0x01, 0x03, 0x00, 0xFC, 0xFF, 'a', 'b', 'c'});
    deflated.insert(deflated.end(), {0x02, 0x4D, 0x01, 0x27});
    return deflated;
}

TEST(InflateAhead, GivesAndAsksTheSameEveryTime) {
    struct Case {
        const char* name;
        Bytes deflated;
    };
    std::vector<Case> cases = {
        {"nothing", {}},
        {"empty", Deflated({})},
        {"small", Deflated(MakeBytes(100))},
        {"one piece of noise", Deflated(MakeBytes(kPiece - 11), 0)},
        {"noise", Deflated(MakeBytes(3000000), 0)},
        {"varied", Deflated(Varied(6000000))},
        {"zeros", Deflated(Bytes(20000000))},
        {"silence", LongSilence(400000)},
    };
    Case cut = {"cut", cases[5].deflated};
    cut.deflated.resize(cut.deflated.size() * 2 / 3);
    Case broken = {"broken", cases[5].deflated};
    broken.deflated[broken.deflated.size() / 2] ^= 0x10;
    Case followed = {"followed by others", cases[4].deflated};
    followed.deflated.insert(followed.deflated.end(), 5 * kPiece, 0x55);
    cases.insert(cases.end(), {cut, broken, followed});

    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const Outcome wanted = ReadPlainly(test.deflated);
        std::vector<uint64_t> firstReads;
        for (uint32_t seed = 1; seed <= 3; ++seed) {
            std::vector<uint64_t> reads;
            const Outcome found = ReadAhead(test.deflated, seed, 20000, reads);
            EXPECT_TRUE(found == wanted)
                << found.bytes.size() << " bytes, result " << found.result << ", not "
                << wanted.bytes.size() << ", " << wanted.result;
            if (seed == 1) {
                firstReads = reads;
            }
            // Other amounts per read only move the reader's position at the time.
            ASSERT_EQ(reads.size(), firstReads.size());
            for (size_t i = 0; i < reads.size(); ++i) {
                EXPECT_LE(reads[i] > firstReads[i] ? reads[i] - firstReads[i]
                                                   : firstReads[i] - reads[i],
                          20000U);
            }
            ReadAhead(test.deflated, 1, 20000, reads);
            EXPECT_EQ(reads, firstReads) << "the same run once more";
        }
        EXPECT_TRUE(std::is_sorted(firstReads.begin(), firstReads.end()));
    }
}

TEST(InflateAhead, SourceFailuresComeBehindAllTheBytes) {
    const Bytes bytes = MakeBytes(700000);
    const Bytes deflated = Deflated(bytes, 0);
    for (const uint64_t failAt : {uint64_t{0}, uint64_t{100}, kPiece, 4 * kPiece, 5 * kPiece + 9}) {
        SCOPED_TRACE(failAt);
        std::vector<uint64_t> reads;
        const Outcome found = ReadAhead(deflated, 5, 3000, reads, failAt);
        EXPECT_EQ(found.result, kCXResultNoResources);
        EXPECT_FALSE(found.isAtEnd);
        EXPECT_EQ(reads.size(), failAt / kPiece + 1) << "and it isn't tried again";
        ASSERT_LE(found.bytes.size(), failAt);
        EXPECT_GE(found.bytes.size() + 200, failAt) << "only headers of stored blocks are missing";
        EXPECT_TRUE(std::equal(found.bytes.begin(), found.bytes.end(), bytes.begin()));
    }
}

std::atomic<int> g_started{0};
std::atomic<int> g_ended{0};

TEST(InflateAhead, ThreadsEndWithTheStreamAndSmallDataGetsNone) {
    g_started = g_ended = 0;
    CXThread::SetEventHook([](int started, const char* /*name*/) {
        (started != 0 ? g_started : g_ended).fetch_add(1);
    });
    const Bytes small = Deflated(MakeBytes(kPiece - 100), 0);
    std::vector<uint64_t> reads;
    ReadAhead(small, 1, 5000, reads);
    EXPECT_EQ(g_started, 0);

    const Bytes large = Deflated(Varied(3000000));
    Bytes part(200000);
    std::mt19937 random(3);
    int made = 0;
    for (int round = 0; round < 60; ++round) {
        WatchedSource source(large);
        StreamProcessorZLibDecompress inflater;
        CXStreamInflateAhead stream(inflater, source);
        // Closed at any moment: before the first read, in the middle, with a full ring.
        const uint64_t wanted = round == 0 ? 0 : random() % part.size();
        EXPECT_EQ(stream.Read(part.data(), wanted), wanted);
        made += wanted != 0 ? 1 : 0;
        if (round % 3 == 0) {
            stream.Close();
            EXPECT_EQ(g_started, g_ended);
            EXPECT_EQ(stream.Read(part.data(), 1), 0U);
            EXPECT_EQ(stream.GetLastError(), kCXResultNotOpen);
        } else if (round % 3 == 1) {
            std::this_thread::yield();
        }
    }
    CXThread::SetEventHook(nullptr);
    EXPECT_EQ(g_started, made);
    EXPECT_EQ(g_ended, made);
}

TEST(MD5Ahead, LargeStreamsGiveTheSameDigest) {
    const Bytes bytes = MakeBytes(9000001);
    for (const size_t size : {size_t{0x1FFFFF}, size_t{0x200000}, size_t{0x210001}, bytes.size()}) {
        const Bytes start(bytes.begin(), bytes.begin() + static_cast<int64_t>(size));
        const CXString wanted = CXMD5::OfBlock(start.data(), size);
        WatchedSource source(start);
        EXPECT_EQ(MD5OfStream(source, size), wanted);
        EXPECT_EQ(source.GetLastError(), kCXResultOK);
        EXPECT_EQ(source.m_reads.size(), (size + 65535) / 65536);
        // Asked for more than there is: what there was counts, and the error stands.
        WatchedSource shorter(start);
        EXPECT_EQ(MD5OfStream(shorter, bytes.size() + 5), wanted);
        EXPECT_EQ(shorter.GetLastError(), kCXResultEndOfStream);
    }
}

} // namespace
