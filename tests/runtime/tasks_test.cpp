// Tasks and the passes of their host.
#include "runtime/CXTaskHost.h"
#include "runtime/CXTaskLambda.h"
#include "tests/runtime/runtime_test_util.h"

#include <algorithm>
#include <memory>

namespace {

/// Adds its letter at each step, then does something.
class LetterTask : public CXTask {
public:
    LetterTask(Journal& journal, char letter, std::function<void()> action = nullptr)
        : CXTask(CXString(&letter, 1)), m_journal(journal), m_letter(letter),
          m_action(std::move(action)) {}
    ~LetterTask() override { Detach(); }
    void Proc() override {
        m_journal.Add(std::string(1, m_letter));
        if (m_action) {
            m_action();
        }
    }

private:
    Journal& m_journal;
    const char m_letter;
    std::function<void()> m_action;
};

class TaskTest : public testing::Test {
protected:
    /// A task that is added now and stands behind all earlier ones.
    std::unique_ptr<LetterTask> AddInOrder(char letter, std::function<void()> action = nullptr) {
        auto task = std::make_unique<LetterTask>(m_journal, letter, std::move(action));
        m_host.AddTask(task.get());
        m_host.RunTasks();
        m_journal.Take();
        return task;
    }
    std::string Pass() {
        m_host.RunTasks();
        return m_journal.Take();
    }

    Journal m_journal;
    CXTaskHost m_host;
};

TEST_F(TaskTest, TasksAddedTogetherRunByAddressBehindTheOldOnes) {
    const auto old = AddInOrder('o');
    std::vector<std::unique_ptr<LetterTask>> tasks;
    for (int index = 0; index < 6; ++index) {
        tasks.push_back(std::make_unique<LetterTask>(m_journal, static_cast<char>('a' + index)));
    }
    std::vector<LetterTask*> byAddress;
    for (const auto& task : tasks) {
        byAddress.push_back(task.get());
    }
    std::sort(byAddress.begin(), byAddress.end(), std::less<>());
    std::string expected = "o";
    for (const LetterTask* task : byAddress) {
        expected += std::string(" ") + task->GetTaskName().GetData();
    }
    for (size_t index = byAddress.size(); index > 0; --index) {
        m_host.AddTask(byAddress[index - 1]);
    }
    EXPECT_EQ(Pass(), expected);
    EXPECT_EQ(Pass(), expected);
}

TEST_F(TaskTest, ATaskAddedDuringAPassWaitsForTheNext) {
    LetterTask late(m_journal, 'l');
    const auto a = AddInOrder('a');
    const auto adder = AddInOrder('+', [&] { m_host.AddTask(&late); });
    m_host.RemoveTask(&late);
    EXPECT_EQ(Pass(), "a +");
    EXPECT_EQ(late.GetHost(), &m_host);
    EXPECT_EQ(Pass(), "a + l");
    m_host.AddTask(&late);
    EXPECT_EQ(Pass(), "a + l") << "adding what is there changes nothing";
}

TEST_F(TaskTest, WhoSlidesIntoAGapMissesThatPass) {
    LetterTask* self = nullptr;
    const auto a = AddInOrder('a');
    int removeFrom = 0;
    std::unique_ptr<LetterTask> b = AddInOrder('b', [&] {
        if (removeFrom == 1) {
            m_host.RemoveTask(self);
        } else if (removeFrom == 2) {
            m_host.RemoveTask(a.get());
        }
        removeFrom = 0;
    });
    self = b.get();
    const auto c = AddInOrder('c');
    const auto d = AddInOrder('d');
    removeFrom = 1;
    EXPECT_EQ(Pass(), "a b d") << "itself";
    EXPECT_EQ(Pass(), "a c d");
    m_host.AddTask(b.get());
    EXPECT_EQ(Pass(), "a c d b");
    m_host.RemoveTask(c.get());
    m_host.RemoveTask(d.get());
    m_host.AddTask(c.get());
    m_host.AddTask(d.get());
    const std::string order = Pass();
    removeFrom = 2;
    EXPECT_EQ(Pass(), order.substr(0, 4) + order.substr(order.size() - 1)) << "an earlier one";
    EXPECT_EQ(Pass(), order.substr(2));
}

TEST_F(TaskTest, DeletingFromWithinAPassAndNestedPasses) {
    std::unique_ptr<LetterTask> doomed;
    const auto a = AddInOrder('a', [&] {
        m_host.RunTasks();
        doomed.reset();
    });
    doomed = AddInOrder('x');
    m_host.AddTask(doomed.get());
    std::unique_ptr<CXTaskLambda> last = std::make_unique<CXTaskLambda>("lambda", [&] {
        m_journal.Add("lambda");
        last.reset();
    });
    m_host.AddTask(last.get());
    EXPECT_EQ(Pass(), "a lambda") << "no entry twice, none after its end";
    EXPECT_EQ(last, nullptr);
    EXPECT_EQ(Pass(), "a");
}

TEST_F(TaskTest, PendingTasksCanBeTakenBackAndForeignTasksStay) {
    CXTaskHost other;
    LetterTask task(m_journal, 't');
    LetterTask child(m_journal, 'c');
    m_host.AddTask(&task);
    m_host.RemoveTask(&task);
    EXPECT_EQ(task.GetHost(), nullptr);
    EXPECT_EQ(Pass(), "");
    m_host.AddTask(&task);
    task.AddChild(&child);
    other.AddTask(&task);
    EXPECT_EQ(task.GetHost(), &m_host);
    EXPECT_EQ(child.GetHost(), nullptr) << "the children of an attached task are not looked at";
    other.RemoveTask(&task);
    EXPECT_EQ(task.GetHost(), &m_host);
    EXPECT_EQ(Pass(), "t");
}

TEST_F(TaskTest, ChildrenGoWithTheirParentButDoNotDieWithIt) {
    auto parent = std::make_unique<LetterTask>(m_journal, 'p');
    LetterTask first(m_journal, '1');
    auto second = std::make_unique<LetterTask>(m_journal, '2');
    LetterTask grandchild(m_journal, 'g');
    parent->AddChild(&first);
    parent->AddChild(second.get());
    first.AddChild(&grandchild);
    m_host.AddTask(parent.get());
    EXPECT_EQ(Pass().size(), 7u) << "all four";
    m_host.RemoveTask(parent.get());
    EXPECT_EQ(Pass(), "");
    EXPECT_EQ(grandchild.GetHost(), nullptr);
    m_host.AddTask(parent.get());
    m_host.RunTasks();
    m_journal.Take();
    second.reset();
    ASSERT_EQ(parent->GetChildren().size(), 1u);
    EXPECT_EQ(Pass().size(), 5u);
    parent->RemoveChild(&first);
    EXPECT_EQ(first.GetParent(), nullptr);
    EXPECT_EQ(first.GetHost(), nullptr);
    EXPECT_EQ(grandchild.GetHost(), nullptr);
    EXPECT_EQ(Pass(), "p");
    LetterTask orphan(m_journal, 'o');
    auto shortParent = std::make_unique<LetterTask>(m_journal, 'q');
    shortParent->AddChild(&orphan);
    m_host.AddTask(shortParent.get());
    m_host.RunTasks();
    m_journal.Take();
    CXTask* const dangling = shortParent.get();
    shortParent.reset();
    EXPECT_EQ(Pass(), "p o") << "the child stays attached";
    EXPECT_EQ(orphan.GetParent(), dangling) << "and is told nothing";
    // Give it a living parent to leave, since it would ask the dead one at its own end.
    LetterTask adopter(m_journal, 'z');
    adopter.AddChild(&orphan);
    adopter.RemoveChild(&orphan);
}

TEST_F(TaskTest, RemovalFromAnotherThreadWaitsForThePass) {
    CXEvent inProc;
    CXEvent leaveProc;
    std::atomic<bool> removed{false};
    LetterTask slow(m_journal, 's', [&] {
        inProc.Set();
        leaveProc.Wait();
        EXPECT_FALSE(removed);
    });
    LetterTask added(m_journal, 'n');
    m_host.AddTask(&slow);
    FunctionThread remover([&](FunctionThread&) {
        inProc.Wait();
        m_host.AddTask(&added); // never waits
        leaveProc.Set();
        m_host.RemoveTask(&slow);
        removed = true;
    });
    remover.Start();
    EXPECT_EQ(Pass(), "s");
    remover.Join();
    EXPECT_TRUE(removed);
    EXPECT_EQ(Pass(), "n");
}

TEST_F(TaskTest, ManyThreadsAddAndDeleteWhileTheHostRuns) {
    std::atomic<int> steps{0};
    std::vector<std::unique_ptr<FunctionThread>> threads;
    for (int index = 0; index < 3; ++index) {
        threads.push_back(std::make_unique<FunctionThread>([&](FunctionThread&) {
            for (int round = 0; round < 300; ++round) {
                CXTaskLambda task("short", [&steps] { ++steps; });
                m_host.AddTask(&task);
                if (round % 3 == 0) {
                    const int before = steps;
                    WaitUntil([&] { return steps > before; });
                }
            }
        }));
        threads.back()->Start();
    }
    EXPECT_TRUE(WaitUntil([&] {
        m_host.RunTasks();
        return std::none_of(threads.begin(), threads.end(),
                            [](const auto& thread) { return thread->IsRunning(); });
    }));
    EXPECT_GE(steps, 300);
}

TEST(TaskHosts, EachThreadHasItsOwnUntilItEnds) {
    CXTaskHost* seen = nullptr;
    CXTaskHost* mainHost = CXTaskHost::GetCurrent();
    const CXThreadId mainId = CXCurrentThreadId();
    int steps = 0;
    CXTaskLambda left("left behind", [&] { ++steps; });
    FunctionThread thread([&](FunctionThread&) {
        seen = CXTaskHost::GetCurrent();
        EXPECT_EQ(seen, CXTaskHost::GetForThread(CXCurrentThreadId()));
        seen->AddTask(&left);
        seen->RunTasks();
        CXTaskHost::SetCurrentOverride(mainId);
        EXPECT_EQ(CXTaskHost::GetCurrent(), mainHost);
        CXTaskHost::SetCurrentOverride(kCXNoThread);
        EXPECT_EQ(CXTaskHost::GetCurrent(), seen);
    });
    thread.Start();
    thread.Join();
    EXPECT_EQ(steps, 1);
    EXPECT_NE(seen, mainHost);
    EXPECT_EQ(left.GetHost(), nullptr) << "detached when the thread's host went";
}

} // namespace
