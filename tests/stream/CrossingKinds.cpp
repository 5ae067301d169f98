#include "tests/stream/CrossingKinds.h"

#include <algorithm>
#include <thread>

namespace {

constexpr uint32_t kPatience = 10000; // ms

class FifoUnderTest : public StreamUnderTest {
public:
    explicit FifoUnderTest(const Bytes& bytes) : m_before(bytes) {
        m_stream.Write(bytes.data(), bytes.size());
    }
    CXStream& Get() override { return m_stream; }
    Bytes Stored() override {
        Bytes held(static_cast<size_t>(m_stream.GetSize()));
        m_stream.Read(held.data(), held.size());
        // What the test did not read of the first bytes is still in front.
        const bool unread = held.size() > m_before.size() &&
                            std::equal(m_before.begin(), m_before.end(), held.begin());
        return Bytes(held.begin() + static_cast<int64_t>(unread ? m_before.size() : 0), held.end());
    }

private:
    Bytes m_before;
    CXStreamFIFO m_stream;
};

class PipeUnderTest : public StreamUnderTest {
public:
    explicit PipeUnderTest(const Bytes& bytes) {
        m_pipe.GetEnd(0).Write(bytes.data(), bytes.size());
    }
    CXStream& Get() override { return m_pipe.GetEnd(1); }
    Bytes Stored() override {
        Get().Close();
        return Drain(m_pipe.GetEnd(0));
    }

private:
    CXStreamPipe m_pipe;
};

class ChannelUnderTest : public StreamUnderTest {
public:
    explicit ChannelUnderTest(const Bytes& bytes) : m_near(m_pair.left.OpenChannel(7)) {
        m_near->Write(bytes.data(), bytes.size());
        m_far = m_pair.right.TakeChannel(kPatience);
        while (m_far->GetSize() < bytes.size() && m_far->GetArrivalEvent().Wait(kPatience)) {
            std::this_thread::yield();
        }
    }
    CXStream& Get() override { return *m_far; }
    Bytes Stored() override {
        m_far->Close();
        return Drain(*m_near);
    }

private:
    MultiplexerPair m_pair;
    CXStreamMultiplexer::Channel m_near;
    CXStreamMultiplexer::Channel m_far;
};

template <typename T> StreamKind Crossing(const char* name, bool drainsClosed) {
    return {.name = name,
            .make = [](const Bytes& bytes) { return std::make_unique<T>(bytes); },
            .flags = 0x147,
            .seeks = false,
            .writes = true,
            .duplex = true,
            .marksEnd = false,
            .dryIsNoFault = true,
            .drainsClosed = drainsClosed};
}

} // namespace

Bytes Drain(CXStreamQueued& stream, size_t count) {
    Bytes all;
    while (all.size() < count) {
        const bool wasOpen = stream.IsOpen();
        uint8_t piece[5000];
        const uint64_t got =
            stream.Read(piece, std::min<uint64_t>(sizeof(piece), count - all.size()));
        all.insert(all.end(), piece, piece + got);
        if (got == 0 && (!wasOpen || !stream.GetArrivalEvent().Wait(kPatience))) {
            break;
        }
    }
    return all;
}

const std::vector<StreamKind>& CrossingStreamKinds() {
    static const std::vector<StreamKind> kinds = {
        Crossing<FifoUnderTest>("Fifo", true),
        Crossing<PipeUnderTest>("PipeEnd", false),
        Crossing<ChannelUnderTest>("MultiplexerChannel", false),
    };
    return kinds;
}
