// Start and stop of the runtime.
#include "runtime/CXGenericEventContextManual.h"
#include "runtime/CXGenericEventContextThread.h"
#include "runtime/CXMessagePostTask.h"
#include "runtime/CXTaskLambda.h"
#include "runtime/CXTimerManager.h"
#include "runtime/CXWorkerHost.h"
#include "tests/runtime/runtime_test_util.h"

#include <memory>

namespace {

class Module : public CXRuntimeModule {
public:
    Module(Journal& journal, const char* name) : m_journal(journal), m_name(name) {}
    void RuntimeStarted() override {
        // Everything that the main thread has stands by now.
        EXPECT_EQ(CXThread::GetName(CXCurrentThreadId()), "main");
        EXPECT_NE(CXMessagePostTask::GetMainThreadSingleton(), nullptr);
        m_journal.Add("+" + m_name);
    }
    void RuntimeStopping() override {
        EXPECT_EQ(CXThread::GetName(CXCurrentThreadId()), "main");
        EXPECT_EQ(CXWorkerHost::GetExisting(), nullptr);
        m_journal.Add("-" + m_name);
    }

private:
    Journal& m_journal;
    const std::string m_name;
};

TEST(Runtime, ModulesAreToldOnceAndInOrderOfTheirIds) {
    Journal journal;
    Module a(journal, "a");
    Module b(journal, "b");
    Module c(journal, "c");
    CXRuntime::Stop();
    CXRuntime::AddModule(7, &b);
    CXRuntime::AddModule(3, &a);
    EXPECT_FALSE(CXRuntime::IsStarted());
    EXPECT_EQ(journal.Take(), "");
    for (int round = 0; round < 2; ++round) {
        CXRuntime::Start();
        CXRuntime::Start();
        EXPECT_EQ(journal.Take(), "+a +b");
        CXRuntime::AddModule(5, &c);
        EXPECT_EQ(journal.Take(), "+c") << "who comes late is told at once";
        CXRuntime::Stop();
        CXRuntime::Stop();
        EXPECT_EQ(journal.Take(), "-b -c -a");
        CXRuntime::RemoveModule(5);
    }
    CXRuntime::RemoveModule(3);
    CXRuntime::RemoveModule(7);
    const CXRuntimeScope scope;
    EXPECT_EQ(journal.Take(), "");
}

TEST(Runtime, StopTakesEverythingDownWhateverIsUnderWay) {
    CXTaskHost::GetCurrent(); // a host from before the start goes as well
    for (int round = 0; round < 3; ++round) {
        CXRuntime::Start();
        std::atomic<int> steps{0};
        CXTaskLambda task("task", [&] { ++steps; });
        CXTaskHost::GetCurrent()->AddTask(&task);
        CXTaskHost::GetCurrent()->RunTasks();
        auto event = std::make_unique<CXEvent>();
        for (CXGenericEventContext* context :
             {static_cast<CXGenericEventContext*>(CXGenericEventContextManual::GetSingleton()),
              static_cast<CXGenericEventContext*>(CXGenericEventContextThread::GetSingleton())}) {
            context->AddHandler(CXGenericEventRef(event.get()), nullptr, [] { return 1; });
        }
        CXMessageTarget target;
        const auto shared = std::make_shared<int>(0);
        CXWorkerHost::GetSingleton()->PostJob(
            [shared] { CXWorkerHost::GetSingleton()->GetCancelEvent().Wait(); });
        CXWorkerHost::GetSingleton()->PostToMain(&target, [shared] {});
        CXMessagePostTask::GetMainThreadSingleton()->Post(&target,
                                                          std::make_unique<CXMessage>("never"));
        CXRuntime::Stop();
        EXPECT_EQ(shared.use_count(), 1);
        EXPECT_EQ(task.GetHost(), nullptr);
        EXPECT_EQ(CXThread::GetCurrent(), nullptr);
        EXPECT_EQ(steps, 1);
    }
}

} // namespace
