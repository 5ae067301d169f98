// The streams that cross threads: what the conformance suite can't ask of a single stream.

#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamHandler.h"
#include "stream/CXStreamStaticBuffer.h"
#include "tests/stream/CrossingKinds.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace {

constexpr uint32_t kPatience = 10000; // ms

CXStreamMultiplexer::Channel TakeFrom(CXStreamMultiplexer& multiplexer) {
    return multiplexer.TakeChannel(kPatience);
}

std::string Text(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

std::string Held(CXStream& stream) {
    Bytes bytes(static_cast<size_t>(stream.GetSize()));
    bytes.resize(static_cast<size_t>(stream.Read(bytes.data(), bytes.size())));
    return Text(bytes);
}

TEST(Fifo, EventsFollowWhatIsHeld) {
    CXStreamFIFO fifo;
    const CXGenericEventRef readable = fifo.GetEventRef(kCXStreamEventCanRead);
    EXPECT_EQ(fifo.Write("", 0), 0U);
    EXPECT_FALSE(fifo.GetArrivalEvent().Test() || readable.Test());
    fifo.Write("ab", 2);
    fifo.Write("cd", 2);
    char out[4] = {};
    EXPECT_EQ(fifo.Read(out, 3), 3U);
    EXPECT_TRUE(fifo.GetArrivalEvent().Test() && readable.Test());
    EXPECT_EQ(fifo.Read(out + 3, 1), 1U);
    EXPECT_EQ(std::string(out, 4), "abcd");
    EXPECT_FALSE(fifo.GetArrivalEvent().Test() || readable.Test());

    fifo.SetFlagsUnderMask(0, kCXStreamIsOpen);
    EXPECT_TRUE(fifo.GetArrivalEvent().Test()) << "who waits is woken";
    EXPECT_EQ(fifo.GetFlags(), 0x147U);
    EXPECT_EQ(fifo.Read(out, 1), 0U);
    EXPECT_FALSE(fifo.GetArrivalEvent().Test()) << "a dry read makes the next wait a real one";
    EXPECT_EQ(fifo.GetLastError(), kCXResultOK);

    fifo.Close();
    EXPECT_TRUE(fifo.GetArrivalEvent().Test());
    EXPECT_EQ(fifo.Read(out, 1), 0U);
    EXPECT_TRUE(fifo.IsAtEnd() && fifo.GetArrivalEvent().Test());
    EXPECT_EQ(fifo.GetLastError(), kCXResultEndOfStream);
    EXPECT_EQ(fifo.Write("x", 1), 0U);
    EXPECT_EQ(fifo.GetLastError(), kCXResultNotOpen);
}

TEST(Fifo, WritersOfSeveralThreadsKeepTheirOrder) {
    constexpr uint32_t kWriters = 3;
    constexpr uint32_t kRecords = 3000;
    CXStreamFIFO fifo;
    std::vector<std::thread> writers;
    std::atomic<uint32_t> left{kWriters};
    for (uint32_t writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&, writer] {
            for (uint32_t i = 0; i < kRecords; ++i) {
                const uint32_t record[2] = {writer, i};
                fifo.Write(record, sizeof(record));
            }
            if (--left == 0) {
                fifo.Close();
            }
        });
    }
    std::mt19937 random(5);
    Bytes all;
    while (!fifo.IsAtEnd()) {
        uint8_t piece[100];
        const uint64_t got = fifo.Read(piece, 1 + random() % sizeof(piece));
        all.insert(all.end(), piece, piece + got);
        ASSERT_TRUE(got != 0 || fifo.GetArrivalEvent().Wait(kPatience));
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    ASSERT_EQ(all.size(), kWriters * kRecords * 8U);
    uint32_t next[kWriters] = {};
    for (size_t i = 0; i < all.size(); i += 8) {
        uint32_t record[2];
        std::memcpy(record, &all[i], sizeof(record));
        ASSERT_LT(record[0], kWriters);
        ASSERT_EQ(record[1], next[record[0]]++);
    }
}

TEST(Pipe, ClosingOneEndEndsTheOther) {
    CXStreamPipe pipe;
    CXStreamPipe::End& near = pipe.GetEnd(0);
    CXStreamPipe::End& far = pipe.GetEnd(1);
    far.Write("lost", 4);
    near.Write("kept", 4);
    near.Close();
    EXPECT_FALSE(near.IsOpen() || far.IsOpen());
    EXPECT_EQ(near.GetSize(), 0U);
    EXPECT_EQ(Text(Drain(far)), "kept");
    EXPECT_TRUE(far.IsAtEnd());
    EXPECT_EQ(far.GetLastError(), kCXResultEndOfStream);
    EXPECT_EQ(far.Write("x", 1), 0U);
    EXPECT_EQ(far.GetLastError(), kCXResultBrokenPipe);
    EXPECT_EQ(near.Write("x", 1), 0U);
    EXPECT_EQ(near.GetLastError(), kCXResultNotOpen);
    far.Close();
    far.ResetError();
    EXPECT_EQ(far.Write("x", 1), 0U);
    EXPECT_EQ(far.GetLastError(), kCXResultNotOpen);
}

/// A multiplexer whose peer is the test itself, byte by byte.
struct RawPeer {
    CXStreamPipe pipe;
    CXStreamPipe::End& wire = pipe.GetEnd(0);
    CXStreamMultiplexer multiplexer{pipe.GetEnd(1), &pipe.GetEnd(1).GetArrivalEvent()};

    std::string Sent() { return Held(wire); }
    /// Runs the thread's body over these bytes and the end of the connection.
    void Feed(const std::string& bytes) {
        wire.Write(bytes.data(), bytes.size());
        wire.Close();
        multiplexer.Proc();
    }
};

std::string Command(char command, uint32_t id) {
    std::string bytes(1, command);
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(id >> shift);
    }
    return bytes;
}
std::string Data(uint32_t id, const std::string& bytes, uint32_t size) {
    return Command(3, id) + Command(0, size).substr(1) + bytes;
}
std::string Data(uint32_t id, const std::string& bytes) {
    return Data(id, bytes, static_cast<uint32_t>(bytes.size()));
}

TEST(Multiplexer, SendsItsCommandsInTheMachinesOrder) {
    RawPeer peer;
    const auto channel = peer.multiplexer.OpenChannel(0x01020304);
    EXPECT_EQ(peer.Sent(), std::string("\1\4\3\2\1", 5));
    EXPECT_EQ(channel->Write("abc", 3), 3U);
    EXPECT_EQ(channel->Write("", 0), 0U);
    EXPECT_EQ(peer.Sent(), std::string("\3\4\3\2\1\3\0\0\0abc", 12));
    const std::string large = Text(MakeBytes(40000));
    EXPECT_EQ(channel->Write(large.data(), large.size()), large.size());
    EXPECT_TRUE(peer.Sent() == Data(0x01020304, large));
    channel->Close();
    channel->Close();
    EXPECT_EQ(peer.Sent(), std::string("\2\4\3\2\1", 5));
    EXPECT_EQ(peer.multiplexer.GetChannelCount(), 0U);

    // A channel that was opened anew must not be closed by the owner of the earlier one.
    const auto first = peer.multiplexer.OpenChannel(5);
    const auto second = peer.multiplexer.OpenChannel(5);
    EXPECT_FALSE(first->IsOpen());
    EXPECT_TRUE(second->IsOpen());
    peer.Sent();
    first->Close();
    EXPECT_EQ(first->Write("x", 1), 0U);
    EXPECT_EQ(peer.Sent(), "");
    peer.wire.Close();
    EXPECT_EQ(second->Write("abc", 3), 0U);
    EXPECT_EQ(second->GetLastError(), kCXResultBrokenPipe);
    EXPECT_FALSE(peer.multiplexer.OpenChannel(6));
}

TEST(Multiplexer, ObeysWhatThePeerSends) {
    struct Case {
        const char* name;
        std::string bytes;
        CXResult result;
        std::vector<std::string> channels; ///< contents, by id
        const char* log = nullptr;
    };
    const Case cases[] = {
        {"opened twice",
         Command(1, 4) + Data(4, "old") + Command(1, 4) + Data(4, "new"),
         kCXResultEndOfStream,
         {"new"}},
        {"closed, then data",
         Command(1, 4) + Data(4, "a") + Command(2, 4) + Data(4, "b"),
         kCXResultEndOfStream,
         {"a"}},
        {"more stated than sent",
         Command(1, 3) + Data(3, "few", 0xFFFFFFFF),
         kCXResultEndOfStream,
         {"few"}},
        {"unknown command",
         Command(1, 3) + "\xF0" + Command(1, 4),
         kCXResultBadData,
         {""},
         "CXStreamMultiplexer::Proc> unknown command 240"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        LogCapture log;
        RawPeer peer;
        peer.Feed(test.bytes);
        EXPECT_EQ(peer.multiplexer.GetEndResult(), test.result);
        EXPECT_EQ(peer.multiplexer.GetEventRef(CXStreamMultiplexer::kEventChannelWaits).Test(),
                  !test.channels.empty());
        for (const std::string& content : test.channels) {
            const auto channel = TakeFrom(peer.multiplexer);
            ASSERT_TRUE(channel);
            EXPECT_FALSE(channel->IsOpen());
            EXPECT_EQ(Text(Drain(*channel)), content);
            EXPECT_TRUE(channel->IsAtEnd());
        }
        EXPECT_FALSE(TakeFrom(peer.multiplexer)) << "doesn't wait once the thread has ended";
        EXPECT_EQ(log.Get(), test.log == nullptr ? std::vector<std::string>()
                                                 : std::vector<std::string>{test.log});
    }
}

TEST(Multiplexer, ChannelsOfManyThreadsDontMix) {
    MultiplexerPair pair;
    constexpr uint32_t kChannels = 4;
    static constexpr size_t kSize = 150000;
    std::vector<std::thread> threads;
    for (uint32_t id = 0; id < kChannels; ++id) {
        threads.emplace_back([&pair, id] {
            const auto channel = pair.left.OpenChannel(id);
            const Bytes bytes = MakeBytes(kSize, id);
            for (size_t at = 0, size = 1; at < kSize; at += size, size = size * 5 % 30011 + 1) {
                size = std::min(size, kSize - at);
                ASSERT_EQ(channel->Write(&bytes[at], size), size);
            }
            EXPECT_TRUE(Drain(*channel, kSize) == bytes) << "what the other side sent back";
            channel->Close();
        });
        threads.emplace_back([&pair] {
            const auto channel = TakeFrom(pair.right);
            ASSERT_TRUE(channel);
            const Bytes bytes = Drain(*channel, kSize);
            EXPECT_TRUE(bytes == MakeBytes(kSize, channel->GetId()));
            EXPECT_EQ(channel->Write(bytes.data(), bytes.size()), kSize);
            EXPECT_TRUE(Drain(*channel).empty());
            EXPECT_EQ(channel->GetLastError(), kCXResultEndOfStream);
            channel->Close();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(pair.left.GetChannelCount(), 0U);
    EXPECT_EQ(pair.right.GetChannelCount(), 0U);
}

TEST(Multiplexer, EndsWakeWhoWaitsAndOutliveNothing) {
    auto pair = std::make_unique<MultiplexerPair>();
    const auto near = pair->left.OpenChannel(1);
    const auto far = TakeFrom(pair->right);
    ASSERT_TRUE(near && far);
    std::thread reader([&far] { EXPECT_TRUE(Drain(*far).empty()); });
    std::thread taker([&pair] { EXPECT_FALSE(TakeFrom(pair->right)); });
    pair->right.Stop();
    reader.join();
    taker.join();
    EXPECT_EQ(pair->right.GetEndResult(), kCXResultOK);
    EXPECT_FALSE(far->IsOpen());
    EXPECT_TRUE(near->IsOpen()) << "the other side knows nothing of it";
    EXPECT_FALSE(pair->right.OpenChannel(2));

    pair->right.Start();
    const auto again = pair->left.OpenChannel(3);
    const auto taken = TakeFrom(pair->right);
    ASSERT_TRUE(again && taken);
    again->Write("late", 4);
    EXPECT_EQ(Text(Drain(*taken, 4)), "late");
    pair.reset();
    EXPECT_FALSE(near->IsOpen() || taken->IsOpen());
    EXPECT_EQ(near->Write("x", 1), 0U);
    EXPECT_EQ(near->GetLastError(), kCXResultBrokenPipe);
    near->Flush();
    near->Close();
}

/// Runs its pumps until none is left.
void RunOut(CXStreamHandler& handler) {
    const CXGenericEventRef idle = handler.GetEventRef(CXStreamHandler::kEventIdle);
    handler.Start();
    while (!idle.Test()) {
        std::this_thread::yield();
    }
    handler.Stop();
}

TEST(Handler, PumpsEachSourceToItsEnd) {
    const Bytes bytes = MakeBytes(100000);
    CXStreamStaticBuffer memory(bytes.data(), bytes.size());
    CXStreamPipe there;
    CXStreamPipe back;
    CXStreamDynamicBuffer result;
    CXStreamHandler handler;
    std::vector<std::string> told;
    const auto tell = [&told](const char* name) {
        return [&told, name](CXResult code) {
            told.push_back(std::string(name) + " " + std::to_string(code));
        };
    };
    // Memory to a thread that sends it on in pieces, and from there to memory.
    handler.Add(memory, there.GetEnd(0), true, tell("out"));
    handler.Add(back.GetEnd(1), result, false, tell("in"));
    std::thread relay([&] {
        uint64_t moved = 0;
        for (CXStreamPipe::End& from = there.GetEnd(1); moved < 100000;) {
            const Bytes piece = Drain(from, 777);
            back.GetEnd(0).Write(piece.data(), piece.size());
            moved += piece.size();
        }
        EXPECT_TRUE(Drain(there.GetEnd(1)).empty()) << "the handler closed its end";
        back.GetEnd(0).Close();
    });
    RunOut(handler);
    relay.join();
    EXPECT_EQ(told, (std::vector<std::string>{"out 0", "in 0"}));
    EXPECT_TRUE(Bytes(result.GetData(), result.GetData() + result.GetSize()) == bytes);

    // A destination that takes no more, a source that was closed before, and one that is dry.
    CXStreamStaticBuffer again(bytes.data(), bytes.size());
    uint8_t small[10];
    CXStreamStaticBuffer full(small, sizeof(small), false);
    CXStreamPipe dry;
    told.clear();
    handler.Add(again, full, false, tell("full"));
    handler.Add(there.GetEnd(0), result, false, [&](CXResult code) {
        tell("closed")(code);
        handler.Remove(dry.GetEnd(0));
    });
    handler.Add(dry.GetEnd(0), result, false, tell("dry"));
    RunOut(handler);
    EXPECT_EQ(told, (std::vector<std::string>{"full -3", "closed -1"}));
}

} // namespace
