// TCP streams against peers on loopback, and against sockets that fail.

#include "net/CXStreamTCP.h"

#include "core/CXTime.h"
#include "runtime/CXGenericEventRef.h"
#include "tests/net/SocketDriverDouble.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

constexpr uint32_t kPatienceMs = 10000;
/// Below what any of the limits under test would take.
constexpr auto kPrompt = std::chrono::seconds(5);

class Stopwatch {
public:
    std::chrono::steady_clock::duration Elapsed() const {
        return std::chrono::steady_clock::now() - m_start;
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

std::string ReadText(CXStream& stream, size_t count) {
    std::string text(count, '\0');
    text.resize(static_cast<size_t>(stream.Read(text.data(), count)));
    return text;
}

std::string Pattern(size_t count) {
    std::string text(count, '\0');
    for (size_t i = 0; i < count; ++i) {
        text[i] = static_cast<char>(i * 31 + i / 251);
    }
    return text;
}

/// A port that nobody listens on.
CXSocketAddress DeadAddress() {
    return TestServer([](TestConnection&) {}).GetAddress();
}

/// Calls `Close` from another thread once `action` has had time to block.
template <typename Action> void CloseDuring(CXStream& stream, const Action& action) {
    std::thread closer([&] {
        CXSleep(100);
        stream.Close();
    });
    const Stopwatch watch;
    action();
    closer.join();
    EXPECT_LT(watch.Elapsed(), kPrompt);
    EXPECT_FALSE(stream.IsOpen());
}

TEST(SocketAddress, ReadsNumbersAsScanfWould) {
    const struct {
        const char* text;
        const char* back; // null: no address
    } cases[] = {
        {"127.0.0.1", "127.0.0.1"},
        {"1.2.3.4trailing", "1.2.3.4"},
        {" 1. 2.+3.-1", "1.2.3.255"},
        {"999.1.1.256", "231.1.1.0"},
        {"010.1.1.1", "10.1.1.1"},
        {"1.2.3", nullptr},
        {"1.2.3.", nullptr},
        {"1 .2.3.4", nullptr},
        {"a.2.3.4", nullptr},
        {"99999999999.2.3.4", nullptr},
        {"", nullptr},
    };
    for (const auto& c : cases) {
        const CXSocketAddress address = CXSocketAddress::FromText(c.text, 0x1234);
        EXPECT_EQ(address.IsNone(), c.back == nullptr) << c.text;
        if (c.back != nullptr) {
            EXPECT_EQ(address.ToText(), c.back) << c.text;
            EXPECT_EQ(address.GetPort(), 0x1234);
        }
    }
}

TEST(StreamTCP, TalksBothWaysAtOnce) {
    const std::string bytes = Pattern(3000000);
    TestServer server([&](TestConnection& connection) {
        std::thread sender([&] { connection.Send(bytes); });
        EXPECT_TRUE(connection.ReceiveExactly(bytes.size()) == bytes);
        sender.join();
    });
    CXStreamTCP stream;
    EXPECT_EQ(stream.GetFlags(), 0x3U);
    stream.Open(server.GetAddress(), kPatienceMs);
    ASSERT_TRUE(stream.IsOpen());
    EXPECT_EQ(stream.GetFlags(), 0x103U);
    EXPECT_EQ(stream.GetRemoteAddress().GetPort(), server.GetPort());
    EXPECT_EQ(stream.GetLocalAddress().ToText(), "127.0.0.1");
    EXPECT_NE(stream.GetLocalAddress().GetPort(), 0);
    std::thread writer([&] { EXPECT_EQ(stream.Write(bytes.data(), bytes.size()), bytes.size()); });
    EXPECT_TRUE(ReadText(stream, bytes.size()) == bytes);
    writer.join();
    EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    EXPECT_TRUE(server.WaitForServed(1));
    stream.Close();
    EXPECT_EQ(stream.GetFlags(), 0x3U);
    stream.Close();
}

TEST(StreamTCP, PartialReadsReturnWhatCame) {
    TestServer server([](TestConnection& connection) {
        connection.Send("0123456789");
        connection.ReceiveExactly(1);
    });
    CXStreamTCP stream;
    stream.Open(server.GetAddress(), kPatienceMs);
    stream.SetFlagsUnderMask(~0U, kCXStreamPartialReads);
    EXPECT_EQ(stream.GetFlags(), 0x503U) << "only this one flag is taken";
    EXPECT_EQ(ReadText(stream, 1000), "0123456789");
    EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    stream.SetFlagsUnderMask(0, kCXStreamReadable);
    EXPECT_EQ(stream.GetFlags(), 0x503U);
    stream.SetFlagsUnderMask(0, kCXStreamPartialReads);
    stream.Write("x", 1);
    EXPECT_EQ(ReadText(stream, 5), "") << "the peer has closed";
    EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);
    EXPECT_FALSE(stream.IsAtEnd());

    stream.Open(server.GetAddress(), kPatienceMs);
    EXPECT_EQ(stream.GetLastError(), kCXResultAlreadyOpen);
    EXPECT_FALSE(stream.IsOpen()) << "an opening of an open stream closes it";
    stream.Open(server.GetAddress(), kPatienceMs);
    EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    stream.Write("x", 1);
    EXPECT_EQ(ReadText(stream, 1000), "0123456789") << "a short read";
    EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);
}

TEST(StreamTCP, RefusesWhatCanNotBeDone) {
    TestServer server([](TestConnection& connection) { connection.ReceiveAll(); });
    CXStreamTCP stream;
    uint8_t byte = 0;
    EXPECT_EQ(stream.Read(&byte, 1), 0U);
    EXPECT_EQ(stream.GetLastError(), kCXResultNotOpen);
    stream.Open(server.GetAddress(), kPatienceMs);
    EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    EXPECT_EQ(stream.BufferedRead(&byte, 0x80000000U), 0U);
    EXPECT_EQ(stream.GetLastError(), kCXResultNoResources);
    stream.ResetError();
    EXPECT_EQ(stream.BufferedWrite(&byte, 0x80000000U), 0U);
    EXPECT_EQ(stream.GetLastError(), kCXResultNoResources);
    EXPECT_EQ(stream.Write(&byte, 1), 1U) << "an earlier error doesn't stop writes";
    EXPECT_EQ(stream.Accept(), nullptr) << "it doesn't listen";
    const LogCapture log;
    CXStreamTCP other;
    other.Open(DeadAddress(), kPatienceMs);
    EXPECT_EQ(other.GetLastError(), kCXResultEndOfStream);
    EXPECT_FALSE(other.IsOpen());
    other.Listen(server.GetAddress());
    EXPECT_EQ(other.GetLastError(), kCXResultEndOfStream) << "the port is taken";
    stream.Open(server.GetAddress(), kPatienceMs);
    EXPECT_EQ(log.Get(), (std::vector<std::string>{"CXStreamTCP::Open> Already open"}));
}

TEST(StreamTCP, EveryCallOfAnOpeningMayFail) {
    enum class Fault : uint8_t { Create, Bind, Connect, Blocking, Later };
    const struct {
        const char* name;
        Fault fault;
        int waitAnswer; // of a connect that would block
        bool optionRead;
        int optionValue;
        std::vector<std::string> log;
    } cases[] = {
        {"create", Fault::Create, 0, true, 0, {}},
        {"bind", Fault::Bind, 0, true, 0, {}},
        {"connect", Fault::Connect, 0, true, 0, {}},
        {"select", Fault::Later, -1, true, 0, {"CXStreamTCP::Open> select returned error 42"}},
        {"no answer", Fault::Later, 0, true, 0, {"CXStreamTCP::Open> timeout"}},
        {"getsockopt",
         Fault::Later,
         CXSocketDriver::kException,
         false,
         43,
         {"CXStreamTCP::Open> getsockopt failed with err=43"}},
        {"refused", Fault::Later, CXSocketDriver::kWrite, true, 111, {}},
        {"exception", Fault::Later, CXSocketDriver::kException, true, 0, {}},
        {"blocking mode",
         Fault::Blocking,
         0,
         true,
         0,
         {"CXStreamTCP::Open> ioctlsocket(localSocket, FIONBIO, 1) returned -1",
          "CXStreamTCP::Open> ioctlsocket(localSocket, FIONBIO, 0) returned -1"}},
    };
    TestServer server([](TestConnection&) {});
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const LogCapture log;
        SocketDriverDouble driver;
        driver.failCreate = [&] { return c.fault == Fault::Create; };
        driver.failBind = [&] { return c.fault == Fault::Bind; };
        if (c.fault == Fault::Connect || c.fault == Fault::Later) {
            driver.connect = [&] {
                return c.fault == Fault::Connect ? CXSocketDriver::Connected::Failed
                                                 : CXSocketDriver::Connected::WouldBlock;
            };
        } else if (c.fault == Fault::Blocking) {
            driver.setBlocking = [](bool) { return -1; };
        }
        driver.wait = [&](uint32_t, uint32_t timeoutMs, int& error) {
            CXSleep(c.waitAnswer == 0 ? timeoutMs : 0);
            error = 42;
            return c.waitAnswer;
        };
        driver.getSocketError = [&](int& error) {
            error = c.optionValue;
            return c.optionRead;
        };
        CXStreamTCP stream;
        const Stopwatch watch;
        stream.Open(server.GetAddress(), 120);
        EXPECT_LT(watch.Elapsed(), kPrompt);
        const bool success = c.fault == Fault::Blocking;
        EXPECT_EQ(stream.GetLastError(), success ? kCXResultOK : kCXResultEndOfStream);
        EXPECT_EQ(stream.IsOpen(), success);
        EXPECT_EQ(log.Get(), c.log);
        stream.Close();
        EXPECT_EQ(driver.GetOpenSockets(), 0);
    }
}

TEST(StreamTCP, TrafficTimeoutIsAlwaysTheSame) {
    SocketDriverDouble driver;
    driver.changeTimeout = [](uint32_t) { return 150U; };
    TestServer server([](TestConnection& connection) { connection.ReceiveAll(); });
    CXStreamTCP stream;
    EXPECT_EQ(stream.SetReceiveTimeout(1), kCXResultNotOpen);
    stream.Open(server.GetAddress(), kPatienceMs);
    EXPECT_EQ(stream.SetSendTimeout(1), kCXResultOK);
    EXPECT_EQ(stream.SetReceiveTimeout(7000000), kCXResultOK);
    EXPECT_EQ(driver.GetCalls(),
              (std::vector<std::string>{"send timeout 45000", "receive timeout 45000"}));
    const LogCapture log;
    const Stopwatch watch;
    EXPECT_EQ(ReadText(stream, 1), "");
    EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(100));
    EXPECT_LT(watch.Elapsed(), kPrompt);
    EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);
    ASSERT_EQ(log.Get().size(), 1U);
    EXPECT_EQ(log.Get()[0].rfind("CXStreamTCP::BufferedRead> recv returned err ", 0), 0U);
    EXPECT_NE(log.Get()[0].find(" (at timestamp 1"), std::string::npos);
    // A peer that reads nothing blocks writes.
    const std::string bytes = Pattern(30000000);
    std::atomic<bool> over{false};
    TestServer deaf([&](TestConnection&) {
        while (!over) {
            CXSleep(10);
        }
    });
    CXStreamTCP sender;
    sender.Open(deaf.GetAddress(), kPatienceMs);
    sender.SetSendTimeout(0);
    EXPECT_LT(sender.Write(bytes.data(), bytes.size()), bytes.size());
    over = true;
    EXPECT_EQ(sender.GetLastError(), kCXResultEndOfStream);
    EXPECT_EQ(log.Get().back().rfind("CXStreamTCP::BufferedWrite> send returned err ", 0), 0U);
}

TEST(StreamTCP, OptionsReachTheSocket) {
    SocketDriverDouble driver;
    TestServer server([](TestConnection& connection) { connection.ReceiveAll(); });
    CXStreamTCP stream;
    EXPECT_EQ(stream.SetFastLoopback(true), kCXResultNotSupported);
    EXPECT_EQ(stream.SetNoDelay(true), kCXResultNotOpen);
    stream.Flush();
    stream.Open(server.GetAddress(), kPatienceMs);
    stream.Flush();
    EXPECT_EQ(stream.SetNoDelay(true), kCXResultOK);
    stream.Flush();
    EXPECT_EQ(driver.GetCalls(), (std::vector<std::string>{"nodelay 1", "nodelay 0", "nodelay 1"}));
    stream.Close();
    driver.hasFastLoopback = true;
    EXPECT_EQ(stream.SetFastLoopback(true), kCXResultOK);
    stream.Open(server.GetAddress(), kPatienceMs);
    EXPECT_TRUE(stream.IsOpen());
    stream.Flush();
    EXPECT_EQ(driver.GetCalls(),
              (std::vector<std::string>{"nodelay 1", "nodelay 0", "nodelay 1", "fast loopback 1",
                                        "nodelay 1", "nodelay 0"}))
        << "no delay doesn't outlive the connection";
}

TEST(StreamTCP, HasDataTellsDataAndTheEnd) {
    SocketDriverDouble driver;
    TestServer server([](TestConnection& connection) {
        connection.ReceiveExactly(1);
        connection.Send("x");
        connection.ReceiveExactly(1);
    });
    CXStreamTCP stream;
    EXPECT_FALSE(stream.HasData());
    stream.Open(server.GetAddress(), kPatienceMs);
    CXGenericEventRef readable = stream.GetEventRef(kCXStreamEventCanRead);
    CXGenericEventRef notOpen = stream.GetEventRef(kCXStreamEventNotOpen);
    EXPECT_FALSE(stream.HasData());
    EXPECT_FALSE(readable.Test());
    stream.Write("a", 1);
    const auto waitForData = [&] {
        for (int i = 0; i < 1000 && !readable.Test(); ++i) {
            CXSleep(5);
        }
        return stream.HasData();
    };
    EXPECT_TRUE(waitForData());
    EXPECT_EQ(ReadText(stream, 1), "x");
    EXPECT_FALSE(stream.HasData());
    stream.Write("b", 1);
    EXPECT_TRUE(waitForData()) << "the end can be read, too";
    EXPECT_EQ(ReadText(stream, 1), "");

    const LogCapture log;
    driver.wait = [](uint32_t, uint32_t, int& error) {
        error = 7;
        return -1;
    };
    EXPECT_FALSE(stream.HasData());
    EXPECT_EQ(log.Get(), (std::vector<std::string>{
                             "CXStreamTCP::HasData> select returned error 7",
                             "CXStreamTCP::HasData> select(exceptfds) returned error 7"}));
    EXPECT_TRUE(stream.IsOpen());
    driver.wait = [](uint32_t bits, uint32_t, int&) {
        return static_cast<int>(bits & CXSocketDriver::kException);
    };
    EXPECT_FALSE(stream.HasData());
    EXPECT_FALSE(stream.IsOpen()) << "an exception closes";
    EXPECT_TRUE(notOpen.Test());
}

TEST(StreamTCP, AcceptGivesOpenStreams) {
    CXStreamTCP listener;
    listener.Listen(CXSocketAddress::Loopback(0));
    ASSERT_TRUE(listener.IsOpen());
    CXStreamTCP client;
    client.Open(listener.GetLocalAddress(), kPatienceMs);
    const std::unique_ptr<CXStreamTCP> served = listener.Accept();
    ASSERT_NE(served, nullptr);
    EXPECT_EQ(served->GetFlags(), 0x103U);
    EXPECT_EQ(served->GetLocalAddress().GetPort(), listener.GetLocalAddress().GetPort());
    EXPECT_EQ(served->GetRemoteAddress().GetPort(), client.GetLocalAddress().GetPort());
    client.Write("hello", 5);
    EXPECT_EQ(ReadText(*served, 5), "hello");
    served->Write("you", 3);
    EXPECT_EQ(ReadText(client, 3), "you");
}

TEST(StreamTCP, CloseEndsBlockedCallsOfOtherThreads) {
    SocketDriverDouble driver;
    TestServer server([](TestConnection& connection) {
        connection.ReceiveExactly(1);
        CXSleep(500); // long enough for writes to block
        connection.ReceiveAll();
    });
    {
        SCOPED_TRACE("read");
        CXStreamTCP stream;
        stream.Open(server.GetAddress(), kPatienceMs);
        CloseDuring(stream, [&] { EXPECT_EQ(ReadText(stream, 10), ""); });
        EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);
    }
    {
        SCOPED_TRACE("write");
        CXStreamTCP stream;
        stream.Open(server.GetAddress(), kPatienceMs);
        const std::string bytes = Pattern(30000000);
        CloseDuring(stream, [&] { stream.Write(bytes.data(), bytes.size()); });
        EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);
    }
    for (const bool anyAddress : {false, true}) {
        SCOPED_TRACE("accept");
        CXStreamTCP stream;
        CXSocketAddress address = CXSocketAddress::Loopback(0);
        address.address = anyAddress ? 0 : address.address;
        stream.Listen(address);
        CloseDuring(stream, [&] { EXPECT_EQ(stream.Accept(), nullptr); });
        EXPECT_EQ(stream.Accept(), nullptr);
        EXPECT_EQ(stream.GetLastError(), kCXResultNotOpen);
    }
    {
        SCOPED_TRACE("connect");
        driver.connect = [] { return CXSocketDriver::Connected::WouldBlock; };
        driver.wait = [](uint32_t, uint32_t timeoutMs, int&) {
            CXSleep(timeoutMs);
            return 0;
        };
        CXStreamTCP stream;
        CloseDuring(stream, [&] { stream.Open(server.GetAddress(), 60000); });
        EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);
    }
    EXPECT_EQ(driver.GetOpenSockets(), 0);
}

TEST(StreamTCP, OpeningsAndClosingsRaceWithoutLosingSockets) {
    SocketDriverDouble driver;
    TestServer server([](TestConnection& connection) { connection.Send("greeting"); });
    CXStreamTCP stream;
    std::atomic<bool> over{false};
    std::thread closer([&] {
        while (!over) {
            stream.Close();
        }
    });
    const LogCapture log;
    for (int i = 0; i < 200; ++i) {
        stream.Open(server.GetAddress(), kPatienceMs);
        const std::string text = ReadText(stream, 8);
        EXPECT_TRUE(text == "greeting" || stream.GetLastError() != kCXResultOK);
        EXPECT_FALSE(stream.HasData() && stream.GetLastError() == kCXResultNotOpen);
        stream.Flush();
        stream.Close();
    }
    over = true;
    closer.join();
    EXPECT_EQ(driver.GetOpenSockets(), 0);
}

} // namespace

TEST(StreamTCP, AFlagThatIsSetDoesNotUndoAClose) {
    TestServer server([](TestConnection& connection) { connection.ReceiveAll(); });
    for (int round = 0; round < 200; ++round) {
        CXStreamTCP stream;
        stream.Open(server.GetAddress(), kPatienceMs);
        std::atomic<bool> over{false};
        std::atomic<int> turns{0};
        std::thread reader([&] {
            while (!over) {
                stream.SetFlagsUnderMask(kCXStreamPartialReads, kCXStreamPartialReads);
                stream.SetFlagsUnderMask(0, kCXStreamPartialReads);
                ++turns;
            }
        });
        while (turns == 0) {
            std::this_thread::yield();
        }
        stream.Close();
        over = true;
        reader.join();
        ASSERT_FALSE(stream.IsOpen()) << "round " << round;
    }
}
