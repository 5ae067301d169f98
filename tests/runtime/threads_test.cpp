// Thread objects: start, stop, events, registry, end callbacks.
#include "core/CXTime.h"
#include "runtime/CXCondition.h"
#include "runtime/CXThreadExternal.h"
#include "tests/runtime/runtime_test_util.h"

#include <memory>
#include <thread>

namespace {

TEST(Threads, LifeOfAThreadAsItsEventsTellIt) {
    FunctionThread thread([](FunctionThread& self) {
        while (!self.IsStopRequested()) {
            CXSleep(1);
        }
    });
    const CXGenericEventRef stopRequested = thread.GetEventRef(CXThread::kEventStopRequested);
    const CXGenericEventRef notRunning = thread.GetEventRef(CXThread::kEventNotRunning);
    const CXGenericEventRef running = thread.GetEventRef(CXThread::kEventRunning);
    const CXGenericEventRef plain = thread.GetEventRef(9);
    const auto answers = [&] {
        std::string text;
        for (const CXGenericEventRef* ref : {&stopRequested, &notRunning, &running, &plain}) {
            text += ref->Test() ? '1' : '0';
        }
        return text;
    };
    EXPECT_EQ(answers(), "0101");
    thread.Stop();
    EXPECT_EQ(answers(), "0101") << "stopping what doesn't run changes nothing";
    for (int round = 0; round < 3; ++round) {
        int64_t serial = CXGenericEvent::NextSerial();
        EXPECT_FALSE(thread.GetCondition().TestSince(&serial));
        thread.Start();
        EXPECT_EQ(answers(), "0011");
        EXPECT_TRUE(thread.GetCondition().TestSince(&serial)) << "the start is a signal";
        const CXThreadId id = thread.GetThreadId();
        thread.Start();
        EXPECT_EQ(thread.GetThreadId(), id) << "a second start does nothing";
        serial = CXGenericEvent::NextSerial();
        thread.RequestStop();
        EXPECT_TRUE(stopRequested.Test());
        EXPECT_TRUE(WaitUntil([&] { return notRunning.Test(); })) << "goes true by itself";
        thread.Stop();
        EXPECT_TRUE(thread.GetCondition().TestSince(&serial)) << "so is the end";
        EXPECT_EQ(thread.GetThreadId(), 0u);
        EXPECT_EQ(answers(), "1101") << "the flag stays until the next start";
    }
}

TEST(Threads, ThreadsAreFoundByIdWhileTheyRun) {
    CXEvent go;
    std::atomic<CXThread*> current{nullptr};
    FunctionThread thread(
        [&](FunctionThread& self) {
            current = CXThread::GetCurrent();
            EXPECT_EQ(CXThread::Get(CXCurrentThreadId()), &self);
            EXPECT_FALSE(CXThread::IsMainThread());
            go.Wait();
        },
        "A thread with a name longer than the system takes");
    thread.Start();
    const CXThreadId id = thread.GetThreadId();
    EXPECT_NE(id, CXCurrentThreadId());
    EXPECT_TRUE(WaitUntil([&] { return current == &thread; }));
    EXPECT_EQ(CXThread::GetName(id), "A thread with a name longer than the system takes");
    go.Set();
    thread.Join();
    EXPECT_EQ(CXThread::Get(id), nullptr);
    EXPECT_EQ(CXThread::GetName(id), "<UNKNOWN>");
    EXPECT_TRUE(CXThread::IsMainThread());
    EXPECT_EQ(CXThread::GetName(CXCurrentThreadId()), "<main>");
}

std::atomic<int> g_hookCalls{0};

void CountHook(int started, const char* name) {
    if (std::string(name) == "hooked") {
        g_hookCalls += started == 1 ? 1 : 100;
    }
}

TEST(Threads, EndCallbacksRunOnTheThreadLastToFirstAndOnce) {
    Journal journal;
    CXThreadId ran = 0;
    g_hookCalls = 0;
    CXThread::SetEventHook(CountHook);
    FunctionThread thread([&](FunctionThread&) { journal.Add("proc"); }, "hooked");
    thread.AddEndCallback([&] { journal.Add("first"); });
    thread.AddEndCallback([&] {
        ran = CXCurrentThreadId();
        journal.Add("second");
        thread.AddEndCallback([&] { journal.Add("nested"); });
    });
    thread.Start();
    const CXThreadId id = thread.GetThreadId();
    thread.Join();
    EXPECT_EQ(journal.Take(), "proc second nested first");
    if (id != 0) {
        EXPECT_EQ(ran, id);
    }
    thread.Start();
    thread.Join();
    EXPECT_EQ(journal.Take(), "proc");
    CXThread::SetEventHook(nullptr);
    EXPECT_EQ(g_hookCalls, 202);
    EXPECT_FALSE(CXThread::AddEndCallbackFor(id, [] {}));
}

TEST(Threads, SeveralMayStopOneThread) {
    for (int round = 0; round < 20; ++round) {
        FunctionThread victim([](FunctionThread& self) {
            while (!self.IsStopRequested()) {
                CXSleep(1);
            }
        });
        victim.Start();
        victim.SetPriority(round % 5);
        FunctionThread other([&](FunctionThread&) { victim.Stop(); });
        other.Start();
        victim.Stop();
        EXPECT_FALSE(victim.IsRunning());
        other.Join();
    }
}

TEST(Threads, DeepStacksAreThere) {
    // Streams copy through buffers on the stack, whatever the hint in the object says.
    std::atomic<int> sum{0};
    FunctionThread thread([&](FunctionThread&) {
        volatile char area[512 * 1024];
        for (size_t index = 0; index < sizeof(area); index += 4096) {
            area[index] = 1;
            sum += area[index];
        }
    });
    thread.Start();
    thread.Join();
    EXPECT_EQ(sum, 128);
}

TEST(Threads, ForeignThreadGetsAnObjectForAsLongAsItWants) {
    Journal journal;
    std::thread foreign([&] {
        EXPECT_EQ(CXThread::GetCurrent(), nullptr);
        {
            CXThreadExternal external("foreign", 1);
            EXPECT_EQ(CXThread::GetCurrent(), &external);
            EXPECT_EQ(CXThread::GetName(CXCurrentThreadId()), "foreign");
            EXPECT_TRUE(
                CXThread::AddEndCallbackFor(CXCurrentThreadId(), [&] { journal.Add("first"); }));
            external.AddEndCallback([&] { journal.Add("second"); });
        }
        EXPECT_EQ(CXThread::GetCurrent(), nullptr);
        EXPECT_EQ(CXThread::GetName(CXCurrentThreadId()), "<UNKNOWN>");
    });
    foreign.join();
    EXPECT_EQ(journal.Take(), "second first");
}

TEST(Threads, ConditionWaitsEndBySignalOrTime) {
    CXCondition condition;
    int turn = 0;
    FunctionThread partner([&](FunctionThread&) {
        for (int round = 0; round < 200; ++round) {
            CXConditionGuard guard(condition.GetLock());
            while (turn % 2 == 0) {
                condition.Wait(guard);
            }
            ++turn;
            condition.Signal();
        }
    });
    partner.Start();
    for (int round = 0; round < 200; ++round) {
        CXConditionGuard guard(condition.GetLock());
        while (turn % 2 == 1) {
            condition.Wait(guard);
        }
        ++turn;
        condition.Signal();
    }
    partner.Join();
    EXPECT_EQ(turn, 400);
    CXConditionGuard guard(condition.GetLock());
    const auto start = std::chrono::steady_clock::now();
    while (condition.WaitFor(guard, 30)) {
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(29));
}

} // namespace
