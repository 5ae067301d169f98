// Host names: what is looked up, and the resolver's threads.

#include "net/DNSResolverCore.h"

#include "core/CXTime.h"
#include "tests/net/SocketDriverDouble.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace {

TEST(Resolver, LooksUpOnlyWhatIsNoAddress) {
    SocketDriverDouble driver;
    std::string asked;
    driver.lookUp = [&](const CXString& name, CXSocketAddress& out) {
        asked = std::string(name.View());
        out = CXSocketAddress::FromText("10.20.30.40", 0);
        return name != "unknown.example";
    };
    const struct {
        std::string name;
        const char* answer;
        bool lookedUp;
    } cases[] = {
        {"1.2.3.4", "1.2.3.4", false},
        {"999.1.1.1", "999.1.1.1", false},
        {"-1.2.3.4", "-1.2.3.4", false},
        {"010.1.1.1", "10.20.30.40", true},
        {" 1.2.3.4", "10.20.30.40", true},
        {"1.2.3.4.example", "10.20.30.40", true},
        {"LocalHost", "127.0.0.1", false},
        {"localhost.", "10.20.30.40", true},
        {"server.example", "10.20.30.40", true},
        {"unknown.example", "", true},
        {std::string("server.example\0.other", 21), "", false},
    };
    DNSResolverCore resolver;
    for (const auto& c : cases) {
        asked.clear();
        CXString out = "left over";
        resolver.Resolve(CXString(c.name.data(), c.name.size()), out);
        EXPECT_EQ(out, c.answer) << c.name;
        EXPECT_EQ(asked, c.lookedUp ? c.name : "") << c.name;
    }
}

TEST(Resolver, AsksTheSystem) {
    CXSocketDriver::Platform().Start();
    DNSResolverCore resolver;
    CXString out;
    resolver.Resolve("010.1.1.1", out);
    EXPECT_EQ(out, "8.1.1.1") << "the system reads a leading zero as octal";
    resolver.Resolve("no-such-host.invalid", out);
    EXPECT_EQ(out, "");
}

/// Counts look-ups that run at the same time, and holds them until it is told.
struct Gate {
    std::mutex lock;
    std::condition_variable changed;
    int inside = 0;
    int most = 0;
    bool open = false;
};

struct Answers {
    std::mutex lock;
    std::map<std::string, std::string> texts;
    int destroyed = 0;
};

class Request : public DNSResolverRequest {
public:
    Request(const std::string& host, Answers& answers)
        : DNSResolverRequest(CXString(host)), m_answers(answers) {}
    ~Request() override {
        const std::lock_guard<std::mutex> guard(m_answers.lock);
        ++m_answers.destroyed;
    }
    void Complete(const CXString& text) override {
        EXPECT_EQ(CXThread::GetName(CXCurrentThreadId()), "DNSResolver");
        const std::lock_guard<std::mutex> guard(m_answers.lock);
        m_answers.texts[std::string(hostName.View())] = std::string(text.View());
    }

private:
    Answers& m_answers;
};

TEST(Resolver, ServesAQueueWithEightThreads) {
    SocketDriverDouble driver;
    Gate gate;
    driver.lookUp = [&](const CXString& name, CXSocketAddress& out) {
        std::unique_lock<std::mutex> guard(gate.lock);
        gate.most = std::max(gate.most, ++gate.inside);
        gate.changed.notify_all();
        gate.changed.wait(guard, [&] { return gate.open; });
        --gate.inside;
        out =
            CXSocketAddress::FromText(CXString("10.0.0." + std::string(name.View().substr(1))), 0);
        return name != "h7";
    };
    Answers answers;
    {
        DNSResolverCore resolver;
        for (int i = 0; i < 20; ++i) {
            resolver.Enqueue(std::make_unique<Request>("h" + std::to_string(i), answers));
        }
        {
            std::unique_lock<std::mutex> guard(gate.lock);
            gate.changed.wait(guard, [&] { return gate.inside == 8; });
        }
        EXPECT_EQ(resolver.GetThreadCount(), 8U);
        {
            const std::lock_guard<std::mutex> guard(gate.lock);
            gate.open = true;
            gate.changed.notify_all();
        }
        resolver.WaitUntilIdle();
        EXPECT_EQ(answers.destroyed, 20);
        // Ended threads make room for new ones.
        for (int i = 20; i < 40; ++i) {
            resolver.Enqueue(std::make_unique<Request>("h" + std::to_string(i), answers));
        }
    }
    EXPECT_EQ(gate.most, 8);
    EXPECT_EQ(answers.destroyed, 40);
    ASSERT_EQ(answers.texts.size(), 40U);
    for (const auto& [host, text] : answers.texts) {
        EXPECT_EQ(text, host == "h7" ? "" : "10.0.0." + host.substr(1));
    }
}

} // namespace
