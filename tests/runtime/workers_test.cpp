// Worker threads, chains, and the way back to the main thread.
#include "runtime/CXGenericEventRef.h"
#include "runtime/CXWorkerChain.h"
#include "runtime/CXWorkerHost.h"
#include "tests/runtime/runtime_test_util.h"

#include <memory>
#include <optional>
#include <set>

namespace {

class WorkerTest : public RuntimeTest {
protected:
    CXWorkerHost& Host() { return *CXWorkerHost::GetSingleton(); }
    std::set<std::string> RunningWorkerNames() {
        std::set<std::string> names;
        std::mutex lock;
        std::atomic<int> inside{0};
        for (int index = 0; index < CXWorkerHost::kWorkers; ++index) {
            Host().PostJob([&] {
                {
                    const std::lock_guard<std::mutex> guard(lock);
                    names.insert(CXThread::GetName(CXCurrentThreadId()).GetData());
                }
                ++inside;
                WaitUntil([&] { return inside >= CXWorkerHost::kWorkers; });
                ++inside;
            });
        }
        EXPECT_TRUE(WaitUntil([&] { return inside == 2 * CXWorkerHost::kWorkers; }));
        return names;
    }
};

TEST_F(WorkerTest, FourNamedWorkersComeWithTheFirstJob) {
    EXPECT_EQ(CXWorkerHost::GetExisting(), nullptr);
    Host().PostToMain(nullptr, [] {});
    RunMainTasks();
    EXPECT_EQ(Host().CountWorkers(), 0u) << "none for the main thread's sake";
    EXPECT_EQ(RunningWorkerNames(), (std::set<std::string>{"WorkerThread::0", "WorkerThread::1",
                                                           "WorkerThread::2", "WorkerThread::3"}));
    EXPECT_EQ(Host().CountWorkers(), 4u);
    std::atomic<int> assigned{0};
    for (int32_t index = 0; index < 8; ++index) {
        Host().PostJob(CXWorkerThread(
            [&assigned, index] {
                const CXString name = CXString::Format("WorkerThread::%d", index % 4);
                assigned += CXThread::GetName(CXCurrentThreadId()) == name ? 1 : 100;
            },
            index % 5, index % 4));
    }
    EXPECT_TRUE(WaitUntil([&] { return assigned >= 8; }));
    EXPECT_EQ(assigned, 8);
}

TEST_F(WorkerTest, ChainsKeepTheirOrderAndNeverOverlap) {
    Journal journal;
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    CXEvent other;
    {
        CXWorkerChain chain(Host());
        CXWorkerChain second(Host());
        EXPECT_FALSE(chain.IsBusy());
        for (int index = 0; index < 40; ++index) {
            chain.Add([&, index] {
                most = std::max<int>(most, ++inside);
                if (index == 0) {
                    other.Wait(); // another chain goes on meanwhile
                }
                journal.Add(std::to_string(index));
                --inside;
            });
        }
        second.Add([&] { other.Set(); });
        EXPECT_TRUE(WaitUntil([&] { return !chain.IsBusy() && !second.IsBusy(); }));
    }
    std::string expected = "0";
    for (int index = 1; index < 40; ++index) {
        expected += " " + std::to_string(index);
    }
    EXPECT_EQ(journal.Take(), expected);
    EXPECT_EQ(most, 1);
}

TEST_F(WorkerTest, PostsToMainKeepTheirOrderAndDieWithTheirOwner) {
    Journal journal;
    auto owner = std::make_unique<CXSafePointerTarget>();
    CXSafePointerTarget stays;
    FunctionThread poster([&](FunctionThread&) {
        Host().PostToMain(&stays, [&] { journal.Add("1"); });
        Host().PostToMain(owner.get(), [&] {
            journal.Add("2");
            owner.reset();
            Host().PostToMain(nullptr, [&] { journal.Add("next pass"); });
        });
        Host().PostToMain(owner.get(), [&] { journal.Add("dead"); });
        Host().PostToMain(nullptr, [&] {
            EXPECT_TRUE(CXThread::IsMainThread());
            journal.Add("3");
        });
    });
    Host();
    poster.Start();
    poster.Join();
    EXPECT_EQ(journal.Get(), "");
    RunMainTasks();
    EXPECT_EQ(journal.Take(), "1 2 3");
    RunMainTasks();
    EXPECT_EQ(journal.Take(), "next pass");
}

TEST_F(WorkerTest, AWaiterGoesOnWhenTheMainThreadAnswers) {
    std::optional<CXMainJobRelease> dialog;
    auto answer = std::make_shared<std::string>();
    std::atomic<int> result{-1};
    Host().PostJob([&, answer] {
        const bool released = Host().RunOnMainAndWait(
            [&](CXMainJobRelease release) {
                EXPECT_TRUE(CXThread::IsMainThread());
                dialog = release;
            },
            nullptr);
        result = released ? static_cast<int>(answer->size()) : 1000;
    });
    EXPECT_TRUE(RunMainTasksUntil([&] { return dialog.has_value(); }));
    LetOthersRun();
    EXPECT_EQ(result, -1) << "the job has returned, the question is still open";
    *answer = "/media/disc";
    EXPECT_TRUE(dialog->IsWanted());
    dialog->Release();
    EXPECT_TRUE(WaitUntil([&] { return result == 11; }));
    EXPECT_TRUE(WaitUntil([&] { return !dialog->IsWanted(); }));
    // On the main thread itself there is nobody else to wait for.
    EXPECT_TRUE(
        Host().RunOnMainAndWait([](CXMainJobRelease release) { release.Release(); }, nullptr));
    EXPECT_FALSE(Host().RunOnMainAndWait([](CXMainJobRelease) {}, nullptr));
}

TEST_F(WorkerTest, AWaiterLeavesWhenItIsStoppedOrForgotten) {
    enum class Ending { StopBeforeStart, StopWhileOpen, TokenDropped, StoppedFromTheFirst };
    for (const Ending ending : {Ending::StopBeforeStart, Ending::StopWhileOpen,
                                Ending::TokenDropped, Ending::StoppedFromTheFirst}) {
        SCOPED_TRACE(static_cast<int>(ending));
        std::atomic<bool> stop{ending == Ending::StoppedFromTheFirst};
        std::atomic<int> result{-1};
        bool ran = false;
        std::optional<CXMainJobRelease> dialog;
        Host().PostJob([&] {
            result = Host().RunOnMainAndWait(
                [&](CXMainJobRelease release) {
                    ran = true;
                    dialog = release;
                },
                [&] { return stop.load(); });
        });
        if (ending == Ending::StopWhileOpen || ending == Ending::TokenDropped) {
            EXPECT_TRUE(RunMainTasksUntil([&] { return dialog.has_value(); }));
            if (ending == Ending::TokenDropped) {
                dialog.reset();
            }
        } else {
            LetOthersRun();
        }
        stop = ending != Ending::TokenDropped;
        EXPECT_TRUE(WaitUntil([&] { return result != -1; }));
        EXPECT_EQ(result, 0);
        RunMainTasks();
        EXPECT_EQ(ran, ending == Ending::StopWhileOpen || ending == Ending::TokenDropped)
            << "a question whose asker left is never put";
        if (dialog.has_value()) {
            EXPECT_FALSE(dialog->IsWanted());
        }
    }
}

TEST_F(WorkerTest, StoppingEndsWaitsDropsJobsAndSetsTheCancelEvent) {
    std::atomic<int> ended{0};
    std::atomic<int> started{0};
    const auto token = std::make_shared<int>(0);
    for (int index = 0; index < 40; ++index) {
        Host().PostJob([&, token, index] {
            ++started;
            if (index % 2 == 0) {
                EXPECT_FALSE(Host().RunOnMainAndWait([](CXMainJobRelease) {}, nullptr));
            } else {
                EXPECT_TRUE(Host().GetCancelEvent().Wait());
            }
            ++ended;
        });
    }
    const CXGenericEventRef cancel(&Host().GetCancelEvent());
    EXPECT_TRUE(WaitUntil([&] { return started == 4; }));
    EXPECT_FALSE(cancel.Test());
    EXPECT_EQ(Host().CountWaitingJobs(), 36u);
    Host().RequestStop();
    EXPECT_TRUE(cancel.Test());
    Host().PostJob([&] { ++started; });
    CXWorkerHost::DeleteSingleton();
    EXPECT_EQ(started, 4);
    EXPECT_EQ(ended, 4);
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_FALSE(cancel.HasEvent());
    EXPECT_EQ(RunningWorkerNames().size(), 4u) << "a later use starts afresh";
}

} // namespace
