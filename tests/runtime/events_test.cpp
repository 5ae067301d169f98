// Events, refs, sources and the passes of a context.
#include "runtime/CXCondition.h"
#include "runtime/CXEvent.h"
#include "runtime/CXGenericEventContextManual.h"
#include "runtime/CXGenericEventContextManualBase.h"
#include "runtime/CXGenericEventContextThread.h"
#include "runtime/CXGenericEventKinds.h"
#include "runtime/CXGenericEventSource.h"
#include "runtime/CXGenericEventTimer.h"
#include "tests/runtime/runtime_test_util.h"

#include <memory>
#include <optional>

namespace {

/// A context whose passes the test makes.
class TestContext : public CXGenericEventContextManualBase {
public:
    using CXGenericEventContextManualBase::RunPass;
};

bool PointsToTrue(void* userData) {
    return *static_cast<bool*>(userData);
}

TEST(Events, EachKindAnswersFromItsOwnState) {
    std::atomic<bool> flag{false};
    std::atomic<int64_t> stamp{0};
    bool wanted = false;
    CXGenericEvent plain;
    CXGenericEventBool no(false);
    CXGenericEventBool yes(true);
    CXGenericEventBoolVariable isSet(&flag, false);
    CXGenericEventBoolVariable isClear(&flag, true);
    CXGenericEventPredicate predicate(PointsToTrue, &wanted);
    CXGenericEventTimestampVariable stamped(&stamp);
    CXGenericEventTimer timer;
    CXCondition condition;
    CXEvent event;
    CXGenericEvent* const all[] = {&plain,     &no,      &yes,   &isSet,     &isClear,
                                   &predicate, &stamped, &timer, &condition, &event};
    const int64_t serial = CXGenericEvent::NextSerial();
    const auto answers = [&] {
        std::string text;
        for (CXGenericEvent* each : all) {
            text += each->Test() ? '1' : '0';
            text += each->TestSince(&serial) ? '1' : '0';
        }
        return text;
    };
    //                      pl no ye is ic pr st ti co ev
    EXPECT_EQ(answers(), "11001100110000000000");
    flag = true;
    wanted = true;
    stamp = serial;
    event.Set();
    EXPECT_EQ(answers(), "11001111001110000011") << "a stamp of the same serial is not later";
    stamp = CXGenericEvent::NextSerial();
    condition.Signal();
    event.Reset();
    EXPECT_EQ(answers(), "11001111001111000100");
}

TEST(Events, RefsOutliveTheirEventAndThenAnswerTrue) {
    auto event = std::make_unique<CXGenericEventBool>(false);
    CXGenericEventRef first(event.get());
    CXGenericEventRef copy(first);
    CXGenericEventRef other;
    EXPECT_FALSE(other.HasEvent());
    EXPECT_TRUE(other.Test()) << "no event counts as holding";
    other = copy;
    const CXGenericEventRef& same = other;
    other = same;
    copy.Clear();
    EXPECT_FALSE(copy.HasEvent());
    EXPECT_TRUE(other.IsSameEvent(first));
    EXPECT_FALSE(other.Test());
    { const CXGenericEventRef shortLived(event.get()); }
    event.reset();
    const int64_t serial = 0;
    for (const CXGenericEventRef* ref : {&first, &other}) {
        EXPECT_FALSE(ref->HasEvent());
        EXPECT_TRUE(ref->Test());
        EXPECT_TRUE(ref->TestSince(&serial));
    }
}

class CountingSource : public CXGenericEventSource {
public:
    CXGenericEvent* CreateEvent(uint32_t number) override {
        ++m_made;
        return number == 5 ? nullptr : CXGenericEventSource::CreateEvent(number);
    }
    int m_made = 0;
};

TEST(Events, SourceMakesEachNumberOnceAndTakesItsEventsAlong) {
    auto source = std::make_unique<CountingSource>();
    const CXGenericEventRef far = source->GetEventRef(1000);
    EXPECT_EQ(source->GetEventCount(), 1001u);
    EXPECT_EQ(source->m_made, 1);
    const CXGenericEventRef near = source->GetEventRef(3);
    EXPECT_FALSE(near.IsSameEvent(far));
    EXPECT_TRUE(near.IsSameEvent(source->GetEventRef(3)));
    EXPECT_EQ(source->m_made, 2);
    EXPECT_FALSE(source->GetEventRef(5).HasEvent());
    EXPECT_EQ(source->GetEventCount(), 1001u);
    source.reset();
    EXPECT_FALSE(far.HasEvent());
    EXPECT_FALSE(near.HasEvent());
}

TEST(Events, ManualResetEventWakesEveryWaiterAndKeepsItsState) {
    CXEvent event;
    EXPECT_FALSE(event.Wait(0));
    EXPECT_FALSE(event.Wait(5));
    std::atomic<int> awake{0};
    FunctionThread a([&](FunctionThread&) { awake += event.Wait() ? 1 : 0; });
    FunctionThread b([&](FunctionThread&) { awake += event.Wait(600000) ? 1 : 0; });
    a.Start();
    b.Start();
    event.Set();
    event.Set();
    a.Join();
    b.Join();
    EXPECT_EQ(awake, 2);
    EXPECT_TRUE(event.Wait(0)) << "stays set";
    event.Reset();
    EXPECT_FALSE(event.Test());
}

// A handler table told as words: each handler adds its letter when it is called.
class ContextTest : public testing::Test {
protected:
    void Add(const CXGenericEventRef& ref, const char* letter, int result, void* target = nullptr) {
        m_context.AddHandler(ref, target, [this, letter, result] {
            m_journal.Add(letter);
            return result;
        });
    }
    std::string Pass() {
        m_context.RunPass();
        return m_journal.Take();
    }

    Journal m_journal;
    CXGenericEventBool m_always{true};
    CXGenericEventBool m_never{false};
    TestContext m_context;
};

TEST_F(ContextTest, ResultsDecideWhoStaysAndLevelEventsFireOnEveryPass) {
    std::atomic<bool> flag{true};
    CXGenericEventBoolVariable level(&flag, false);
    Add(CXGenericEventRef(&m_always), "once", 0);
    Add(CXGenericEventRef(&level), "level", 1);
    Add(CXGenericEventRef(&m_never), "never", 1);
    Add(CXGenericEventRef(&m_always), "two", 2);
    Add(CXGenericEventRef(&m_always), "last", 1);
    EXPECT_EQ(Pass(), "once level two last");
    EXPECT_EQ(Pass(), "level last");
    flag = false;
    EXPECT_EQ(Pass(), "last");
    EXPECT_EQ(m_context.CountHandlers(), 3u);
}

TEST_F(ContextTest, StampedEventsFireOncePerChange) {
    CXCondition condition;
    std::atomic<int64_t> stamp{0};
    CXGenericEventTimestampVariable stamped(&stamp);
    Add(CXGenericEventRef(&condition), "c", 1);
    Add(CXGenericEventRef(&stamped), "s", 1);
    EXPECT_EQ(Pass(), "") << "nothing fires before the first signal";
    condition.Signal();
    stamp = CXGenericEvent::NextSerial();
    EXPECT_EQ(Pass(), "c s");
    EXPECT_EQ(Pass(), "");
    // A signal from within a pass, behind the handler that it concerns, is for the next pass.
    m_context.AddHandler(CXGenericEventRef(&m_always), nullptr, [&] {
        condition.Signal();
        return 0;
    });
    EXPECT_EQ(Pass(), "");
    EXPECT_EQ(Pass(), "c");
    EXPECT_EQ(Pass(), "");
}

int CallbackAdd(void* target, void* userData) {
    static_cast<Journal*>(target)->Add(static_cast<const char*>(userData));
    return 1;
}

int CallbackRemove(void*, void*) {
    return 0;
}

TEST_F(ContextTest, EqualCallbacksAreEnteredOnceAndRemovalsMatchTheirFields) {
    char a[] = "a";
    char b[] = "b";
    int target = 0;
    const CXGenericEventRef ref(&m_always);
    m_context.AddCallback(ref, &m_journal, CallbackAdd, a);
    m_context.AddCallback(ref, &m_journal, CallbackAdd, a);
    m_context.AddCallback(ref, &m_journal, CallbackAdd, b);
    m_context.AddCallback(CXGenericEventRef(&m_never), &m_journal, CallbackAdd, a);
    m_context.AddCallback(ref, &target, CallbackRemove, nullptr);
    Add(ref, "h", 1, &target);
    Add(ref, "h", 1, &target);
    EXPECT_EQ(m_context.CountHandlers(), 6u);
    EXPECT_EQ(Pass(), "a b h h");
    m_context.RemoveCallback(&m_journal, CallbackAdd, a);
    EXPECT_EQ(m_context.CountHandlers(), 3u) << "with every event";
    EXPECT_EQ(Pass(), "b h h");
    m_context.RemoveHandlersForEvent(CXGenericEventRef(&m_never), &target);
    EXPECT_EQ(m_context.CountHandlers(), 3u);
    m_context.RemoveHandlersForEvent(ref, &target);
    EXPECT_EQ(Pass(), "b");
    m_context.RemoveHandlersForTarget(&m_journal);
    EXPECT_EQ(m_context.CountHandlers(), 0u);
}

TEST_F(ContextTest, GoneEventsFireUntilTheHandlerLeaves) {
    auto event = std::make_unique<CXGenericEventBool>(false);
    int passes = 0;
    m_context.AddHandler(CXGenericEventRef(event.get()), nullptr,
                         [&] { return ++passes < 3 ? 1 : 0; });
    m_context.RunPass();
    EXPECT_EQ(passes, 0);
    event.reset();
    for (int pass = 0; pass < 5; ++pass) {
        m_context.RunPass();
    }
    EXPECT_EQ(passes, 3);
    EXPECT_EQ(m_context.CountHandlers(), 0u);
}

TEST_F(ContextTest, HandlersMayChangeTheTableDuringAPass) {
    int target = 0;
    const CXGenericEventRef always(&m_always);
    // Entries before the caller go: nobody behind it is skipped.
    Add(always, "x", 1, &target);
    Add(always, "y", 1, &target);
    m_context.AddHandler(always, nullptr, [&] {
        m_context.RemoveHandlersForTarget(&target);
        m_journal.Add("remove");
        m_context.RunPass(); // a pass within a pass does nothing
        Add(always, "late", 0);
        return 0;
    });
    Add(always, "z", 1);
    EXPECT_EQ(Pass(), "x y remove z late");
    EXPECT_EQ(Pass(), "z");
}

TEST_F(ContextTest, RemovingOneselfHoldsTheRestOfThePassAtEachFiringEntry) {
    int target = 0;
    int holds = 3;
    CXGenericEventPredicate countdown([](void* left) { return *static_cast<int*>(left) > 0; },
                                      &holds);
    const auto owned = std::make_shared<int>(7); // seen to be freed, and not under the caller
    m_context.AddHandler(CXGenericEventRef(&m_always), &target, [this, &target, owned] {
        m_context.RemoveHandlersForTarget(&target);
        m_journal.Add("self" + std::to_string(*owned));
        return 1;
    });
    m_context.AddHandler(CXGenericEventRef(&countdown), nullptr, [&] {
        m_journal.Add("again");
        --holds;
        return 0; // not looked at in this pass
    });
    Add(CXGenericEventRef(&m_never), "never", 1);
    EXPECT_EQ(Pass(), "self7 again again again");
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_EQ(m_context.CountHandlers(), 2u);
    holds = 3;
    EXPECT_EQ(Pass(), "again");
    EXPECT_EQ(m_context.CountHandlers(), 1u);
}

using ContextSingletons = RuntimeTest;

TEST_F(ContextSingletons, HandlersRunOnTheThreadOfTheirContext) {
    std::atomic<bool> flag{false};
    CXGenericEventBoolVariable event(&flag, false);
    std::atomic<CXThreadId> manualRan{0};
    std::atomic<CXThreadId> threadRan{0};
    CXGenericEventContextManual* manual = CXGenericEventContextManual::GetSingleton();
    CXGenericEventContextThread* thread = CXGenericEventContextThread::GetSingleton();
    EXPECT_EQ(manual, CXGenericEventContextManual::GetSingleton());
    EXPECT_EQ(thread, CXGenericEventContextThread::GetSingleton());
    EXPECT_TRUE(thread->IsRunning());
    const auto record = [](std::atomic<CXThreadId>& ran) {
        return [&ran] {
            ran = CXCurrentThreadId();
            return 0;
        };
    };
    manual->AddHandler(CXGenericEventRef(&event), this, record(manualRan));
    thread->AddHandler(CXGenericEventRef(&event), this, record(threadRan));
    RunMainTasks();
    EXPECT_EQ(manualRan, 0u);
    flag = true;
    EXPECT_TRUE(RunMainTasksUntil([&] { return manualRan != 0 && threadRan != 0; }));
    EXPECT_EQ(manualRan, CXCurrentThreadId());
    EXPECT_EQ(CXThread::GetName(threadRan), "CXGenericEventContextThread");
}

TEST(Events, PassesRaceWithSignalsAndDyingEventsWithoutLosingAny) {
    constexpr int kSignals = 2000;
    TestContext context;
    CXCondition condition;
    std::atomic<int> signalled{0};
    std::atomic<int> seen{0};
    context.AddHandler(CXGenericEventRef(&condition), nullptr, [&] {
        seen = signalled.load();
        return 1;
    });
    FunctionThread poller([&](FunctionThread& self) {
        while (!self.IsStopRequested()) {
            context.RunPass();
        }
    });
    poller.Start();
    for (int round = 0; round < kSignals; ++round) {
        CXEvent shortLived;
        context.AddHandler(CXGenericEventRef(&shortLived), nullptr, [] { return 0; });
        ++signalled;
        condition.Signal();
    }
    EXPECT_TRUE(WaitUntil([&] { return seen == kSignals && context.CountHandlers() == 1; }));
}

} // namespace
