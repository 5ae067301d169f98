// The timer thread.
#include "runtime/CXGenericEventTimer.h"
#include "runtime/CXTimerManager.h"
#include "tests/runtime/runtime_test_util.h"
#include "tests/support/LogCapture.h"

#include <memory>
#include <thread>

namespace {

constexpr int64_t kMs = 10000;
constexpr int64_t kHour = 3600 * 1000 * kMs;

class TestTimer : public CXTimer {
public:
    TestTimer(Journal& journal, const char* name, bool deleteWhenEmpty = false)
        : CXTimer(name, deleteWhenEmpty), m_journal(journal) {}
    ~TestTimer() override {
        CancelShots();
        m_journal.Add(std::string("~") + GetTimerName().GetData());
    }
    void Fire(void* a, void* b) override {
        m_journal.Add(GetTimerName().GetData() + std::string(static_cast<const char*>(a)));
        if (b != nullptr) {
            (*static_cast<std::function<void()>*>(b))();
        }
    }

private:
    Journal& m_journal;
};

char g_one[] = "1";
char g_two[] = "2";
char g_three[] = "3";

TEST(Timers, ShotsFireInOrderOfDueTimesOnTheTimerThread) {
    Journal journal;
    CXTimerManager manager;
    TestTimer a(journal, "a");
    TestTimer b(journal, "b");
    const int64_t now = CXTimerManager::GetTime();
    CXEvent entered;
    CXEvent go;
    std::function<void()> hold = [&] {
        EXPECT_EQ(CXThread::GetCurrent(), &manager);
        entered.Set();
        go.Wait();
    };
    // While the thread is held in the first shot, the others come in out of order.
    manager.AddShot(a, now - kHour, g_one, &hold);
    ASSERT_TRUE(entered.Wait(30000));
    manager.AddShot(a, now + 40 * kMs, g_three);
    manager.AddShot(b, now + 20 * kMs, g_one);
    manager.AddShot(b, now + 60 * kMs, g_two);
    manager.AddShot(a, now - kHour / 2, g_two);
    go.Set();
    EXPECT_TRUE(WaitUntil([&] { return journal.Get() == "a1 a2 b1 a3 b2"; })) << journal.Get();
    EXPECT_GE(CXTimerManager::GetTime(), now + 60 * kMs) << "not before its time";
    manager.AddShotAfter(b, 1, g_three);
    EXPECT_TRUE(WaitUntil([&] { return journal.Get() == "a1 a2 b1 a3 b2 b3"; }));
}

TEST(Timers, CancelDropsShotsAndWaitsForAFiring) {
    Journal journal;
    CXTimerManager manager;
    TestTimer timer(journal, "t");
    const int64_t now = CXTimerManager::GetTime();
    manager.AddShot(timer, now + kHour, g_one);
    manager.AddShot(timer, now + 2 * kHour, g_two);
    manager.Cancel(timer);
    manager.Cancel(timer);
    CXEvent entered;
    CXEvent go;
    std::atomic<bool> cancelled{false};
    std::function<void()> hold = [&] {
        entered.Set();
        go.Wait();
        LetOthersRun();
        EXPECT_FALSE(cancelled);
        manager.AddShot(timer, now + kHour, g_three); // goes with the cancel that waits
    };
    manager.AddShot(timer, now, g_one, &hold);
    ASSERT_TRUE(entered.Wait(30000));
    FunctionThread canceller([&](FunctionThread&) {
        go.Set();
        manager.Cancel(timer);
        cancelled = true;
    });
    canceller.Start();
    canceller.Join();
    EXPECT_FALSE(manager.IsPending(timer));
    EXPECT_EQ(journal.Take(), "t1");
    // A firing timer may cancel its own later shots.
    CXEvent done;
    std::function<void()> cancelSelf = [&] {
        manager.Cancel(timer);
        done.Set();
    };
    manager.AddShot(timer, now + kHour, g_three);
    manager.AddShot(timer, now, g_one, &cancelSelf);
    ASSERT_TRUE(done.Wait(30000));
    manager.Cancel(timer);
    EXPECT_EQ(journal.Take(), "t1");
}

TEST(Timers, SelfDeletingTimersGoWithTheirLastShot) {
    Journal journal;
    CXTimerManager manager;
    auto* timer = new TestTimer(journal, "d", true);
    CXEvent entered;
    CXEvent go;
    std::function<void()> hold = [&] {
        entered.Set();
        go.Wait();
    };
    manager.AddShot(*timer, 0, g_one, &hold);
    ASSERT_TRUE(entered.Wait(30000));
    manager.AddShot(*timer, 1, g_two);
    go.Set();
    EXPECT_TRUE(WaitUntil([&] { return journal.Get() == "d1 d2 ~d"; })) << journal.Get();
}

TEST(Timers, ManagerNamesTheTimersThatItLeavesBehind) {
    Journal journal;
    TestTimer timer(journal, "left");
    CXGenericEventTimer event;
    const LogCapture log;
    {
        CXTimerManager manager;
        manager.AddShotAfter(timer, 3600000, g_one);
        manager.AddShotAfter(event, 0);
        manager.AddShotAfter(event, 3600000);
        manager.Cancel(event);
    }
    EXPECT_EQ(log.Get(), std::vector<std::string>{"~CXTimerManager> 'left' still attached"});
}

TEST(Timers, ATimerMayGoTheMomentItHasFired) {
    Journal journal;
    std::atomic<bool> fired{false};
    std::function<void()> tell = [&] { fired = true; };
    for (int round = 0; round < 300; ++round) {
        auto timer = std::make_unique<TestTimer>(journal, "g");
        fired = false;
        CXTimerManager::GetSingleton()->AddShotAfter(*timer, 0, g_one, &tell);
        // Busy, so that the owner meets each moment of the firing's end.
        for (int spare = round; !fired || spare > 0; spare -= fired ? 1 : 0) {
            std::this_thread::yield();
        }
        timer.reset();
        EXPECT_EQ(journal.Take(), "g1 ~g");
        if (round % 100 == 0) {
            CXTimerManager::DeleteSingleton(); // comes back with its next use
        }
    }
    CXTimerManager::DeleteSingleton();
}

} // namespace
