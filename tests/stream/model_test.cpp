// Random operations on every kind of stream, compared with a vector of bytes.

#include "tests/stream/StreamKinds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

namespace {

constexpr size_t kSize = 20000;
constexpr int kOperations = 6000;

class StreamModel {
public:
    StreamModel(const StreamKind& kind, uint32_t seed)
        : m_kind(kind), m_random(seed), m_bytes(MakeBytes(kSize, seed)), m_size(kSize),
          m_under(kind.make(m_bytes)), m_stream(&m_under->Get()) {}

    void Run() {
        for (int i = 0; i < kOperations && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("operation " + std::to_string(i) + ", position " +
                         std::to_string(m_position) + ", size " + std::to_string(m_size));
            m_stream->ResetError();
            Step();
            ASSERT_EQ(m_stream->GetPosition(), m_position);
        }
        if (m_kind.writes && !testing::Test::HasFailure()) {
            m_bytes.resize(m_size);
            ASSERT_EQ(m_under->Stored(), m_bytes);
        }
    }

private:
    uint64_t Below(uint64_t limit) { return m_random() % limit; }
    uint64_t Amount() {
        const uint64_t limits[] = {12, 300, 3000, 9000};
        return Below(limits[Below(4)]);
    }
    uint64_t Left() const { return m_size > m_position ? m_size - m_position : 0; }

    void Step() {
        const uint64_t choice = Below(100);
        if (choice < 40) {
            Read(Amount());
        } else if (choice < 60) {
            m_kind.writes ? Write(Amount()) : Read(Below(20));
        } else if (choice < 80) {
            Seek();
        } else if (choice < 84) {
            Skip(Amount());
        } else if (choice < 90) {
            Sizes();
        } else if (choice < 92) {
            m_stream->Flush(Below(20) == 0 ? kCXFlushToDevice : 0);
            ASSERT_EQ(m_stream->GetLastError(), kCXResultOK);
        } else if (choice < 94) {
            m_kind.resizes ? SetSize(Below(2 * kSize)) : Read(1);
        } else if (choice < 96) {
            m_stream->SetOption(Below(2) == 0 ? kCXStreamOptionOverlap : kCXStreamOptionReserve,
                                Below(500));
        } else if (!m_kind.seeks && Left() == 0) {
            Restart();
        } else {
            Read(Below(9));
        }
    }

    /// A forward-only stream that has been read is replaced by a new one.
    void Restart() {
        m_under = m_kind.make(m_bytes);
        m_stream = &m_under->Get();
        m_position = 0;
    }

    void Read(uint64_t count) {
        Bytes got(static_cast<size_t>(count) + 1, 0xA5);
        const uint64_t expected = std::min(count, Left());
        ASSERT_EQ(m_stream->Read(got.data(), count), expected) << "reading " << count;
        ASSERT_TRUE(
            std::equal(got.begin(), got.begin() + static_cast<int64_t>(expected),
                       m_bytes.begin() + static_cast<int64_t>(std::min(m_position, m_size))))
            << "reading " << count;
        ASSERT_EQ(got[static_cast<size_t>(expected)], 0xA5) << "wrote behind what it read";
        m_position += expected;
        const bool isShort = expected < count;
        ASSERT_EQ(m_stream->GetLastError(), isShort ? kCXResultEndOfStream : kCXResultOK);
        if (isShort) {
            ASSERT_TRUE(m_stream->IsAtEnd());
        }
    }

    void Write(uint64_t count) {
        // An empty write behind the end counts as written up to there in some kinds.
        count = std::max<uint64_t>(count, 1);
        const Bytes fresh =
            MakeBytes(static_cast<size_t>(count), static_cast<uint32_t>(m_random()));
        const uint64_t expected = m_kind.grows ? count : std::min(count, Left());
        ASSERT_EQ(m_stream->Write(fresh.data(), count), expected) << "writing " << count;
        if (expected != 0) {
            const uint64_t end = m_position + expected;
            m_bytes.resize(std::max(m_bytes.size(), static_cast<size_t>(end)));
            std::copy_n(fresh.begin(), expected,
                        m_bytes.begin() + static_cast<int64_t>(m_position));
            m_size = std::max(m_size, end);
        }
        m_position += expected;
        ASSERT_EQ(m_stream->GetLastError(), expected < count ? kCXResultEndOfStream : kCXResultOK);
    }

    void Seek() {
        const int whence = static_cast<int>(Below(m_kind.sizeKnown ? 3 : 2));
        // Short steps around the position are the ones that a window may serve.
        const uint64_t target = Below(2) == 0
                                    ? Below(m_size + m_size / 8 + 1)
                                    : m_position - std::min(m_position, Below(300)) + Below(300);
        const uint64_t origin = whence == 0 ? 0 : whence == 1 ? m_position : m_size;
        const uint64_t reached = m_stream->Seek(static_cast<int64_t>(target - origin), whence);
        if (!m_kind.seeks) {
            ASSERT_EQ(reached, target == m_position ? target : 0);
            return;
        }
        if (target > m_size && m_kind.pastEnd == PastEnd::Refused) {
            ASSERT_EQ(reached, 0U);
            ASSERT_EQ(m_stream->GetLastError(), kCXResultNotSupported);
            return;
        }
        m_position = m_kind.pastEnd == PastEnd::Kept ? target : std::min(target, m_size);
        ASSERT_EQ(reached, m_position);
        ASSERT_EQ(m_stream->GetLastError(), kCXResultOK);
    }

    void Skip(uint64_t count) {
        const bool bySeek = (m_stream->GetFlags() & 0x18) == 0x18;
        const uint64_t expected =
            bySeek && m_kind.pastEnd == PastEnd::Kept ? count : std::min(count, Left());
        // A clamped seek from the end stays there.
        ASSERT_EQ(m_stream->Skip(count), expected) << "skipping " << count;
        m_position += expected;
    }

    void Sizes() {
        ASSERT_EQ(m_stream->GetSize(), m_kind.sizeKnown ? m_size : 0);
        ASSERT_EQ(m_stream->IsRemainingKnown(), m_kind.sizeKnown);
        if (m_kind.sizeKnown) {
            ASSERT_EQ(m_stream->GetRemaining(), Left());
        }
    }

    void SetSize(uint64_t size) {
        m_stream->SetSize(size);
        ASSERT_EQ(m_stream->GetLastError(), kCXResultOK);
        if (size > m_bytes.size() || (size < m_size && !m_kind.keepsCutBytes)) {
            m_bytes.resize(static_cast<size_t>(size));
        }
        m_size = size;
        m_position = m_kind.sizeMovesToEnd ? size : std::min(m_position, size);
    }

    const StreamKind& m_kind;
    std::mt19937 m_random;
    Bytes m_bytes; ///< what is stored; behind `m_size` what a gap would show again
    uint64_t m_size;
    uint64_t m_position = 0;
    std::unique_ptr<StreamUnderTest> m_under;
    CXStream* m_stream;
};

class StreamRandom : public testing::TestWithParam<StreamKind> {};

TEST_P(StreamRandom, BehavesLikeAVectorOfBytes) {
    uint32_t seed = std::random_device()();
    if (const char* fixed = std::getenv("VELPATCH_SEED")) {
        seed = static_cast<uint32_t>(std::strtoul(fixed, nullptr, 10));
    }
    for (uint32_t round = 0; round < 3 && !HasFailure(); ++round) {
        SCOPED_TRACE("repeat with VELPATCH_SEED=" + std::to_string(seed + round));
        RecordProperty("seed", std::to_string(seed + round));
        StreamModel(GetParam(), seed + round).Run();
    }
}

INSTANTIATE_TEST_SUITE_P(AllKinds, StreamRandom, testing::ValuesIn(AllStreamKinds()),
                         [](const auto& kind) { return std::string(kind.param.name); });

} // namespace
