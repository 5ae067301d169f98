// Messages, their targets, weak pointers and the queue.
#include "core/CXTime.h"
#include "runtime/CXMessageParams.h"
#include "runtime/CXMessagePostTask.h"
#include "tests/runtime/runtime_test_util.h"

#include <cinttypes>
#include <cstdio>
#include <memory>

namespace {

const CXString kPing("MessagesTest::ping");

class Receiver : public CXMessageTarget {
public:
    Receiver(Journal& journal, const char* name, CXMessageTarget* next = nullptr)
        : m_journal(journal), m_name(name), m_next(next) {}
    CXMessageTarget* GetNextTarget() override { return m_next; }
    CXString GetDebugName() const override { return m_name; }
    const char* GetTypeName() const override { return "Receiver"; }
    CXResult ProcessMessage(const CXMessage& message) override {
        if (message.GetName() == "MessagesTest::unknown") {
            return CXMessageTarget::ProcessMessage(message);
        }
        const bool isPing = message.GetName() == kPing;
        m_journal.Add(m_name.GetData() + std::string(isPing ? "" : message.GetName().GetData()));
        if (m_action) {
            m_action();
        }
        return kCXResultOK;
    }
    void ListenerAdded() override { m_journal.Add("added"); }
    void ListenerRemoved() override { m_journal.Add("removed"); }

    std::function<void()> m_action;

private:
    Journal& m_journal;
    const CXString m_name;
    CXMessageTarget* const m_next;
};

TEST(Messages, BubbleUntilSomebodyHandlesThem) {
    Journal journal;
    Receiver root(journal, "root");
    CXMessageTarget deaf;
    class Passing : public CXMessageTarget {
    public:
        explicit Passing(CXMessageTarget* next) : m_next(next) {}
        CXMessageTarget* GetNextTarget() override { return m_next; }

    private:
        CXMessageTarget* m_next;
    };
    Passing middle(&root);
    Passing leaf(&middle);
    EXPECT_EQ(leaf.ProcessMessage(CXMessage(kPing, &leaf)), kCXResultOK);
    EXPECT_EQ(journal.Take(), "root");
    EXPECT_EQ(leaf.ProcessMessage(CXMessage("MessagesTest::unknown")), kCXResultNotSupported);
    EXPECT_EQ(deaf.ProcessMessage(CXMessage(kPing)), kCXResultNotSupported);

    const CXMessageIntParam number("n", &leaf, -7);
    int extra = 0;
    const CXMessageStringParam texts("t", nullptr, {"a", "", "longer than six"}, &extra);
    EXPECT_EQ(number.GetSource(), &leaf);
    EXPECT_EQ(number.GetValue(), -7);
    EXPECT_EQ(texts.GetStrings()[2], "longer than six");
    EXPECT_EQ(texts.GetPointer(), &extra);
    EXPECT_TRUE(texts.Is("t"));

    char expected[128];
    std::snprintf(expected, sizeof(expected), "CXMessageTarget{Receiver{0x%" PRIxPTR "}='root'}",
                  reinterpret_cast<uintptr_t>(static_cast<CXMessageTarget*>(&root)));
    EXPECT_EQ(CXMessageTarget::ToString(&root), expected);
    EXPECT_EQ(CXMessageTarget::ToString(nullptr), "CXMessageTarget<NULL>");
}

TEST(Messages, WeakPointersClearWhenTheirTargetDies) {
    Journal journal;
    auto target = std::make_unique<Receiver>(journal, "t");
    Receiver other(journal, "o");
    CXSafePointer<Receiver> a(target.get());
    CXSafePointer<Receiver> b(a);
    CXSafePointer<Receiver> c;
    EXPECT_FALSE(c);
    c = b;
    const CXSafePointer<Receiver>& same = c;
    c = same;
    b = &other;
    {
        const CXSafePointer<Receiver> d(a);
        EXPECT_EQ(d.Get(), target.get());
    }
    target.reset();
    EXPECT_EQ(a.Get(), nullptr);
    EXPECT_EQ(c.Get(), nullptr);
    EXPECT_EQ(b.Get(), &other);
    c = b;
    b = nullptr;
    EXPECT_EQ(c->GetDebugName(), "o");
    const Receiver copy(other);
    EXPECT_EQ(c.Get(), &other) << "nobody points to a copy";
}

TEST(Messages, WeakPointersOfManyThreads) {
    std::vector<std::unique_ptr<FunctionThread>> threads;
    CXSafePointerTarget lasting;
    for (int index = 0; index < 4; ++index) {
        threads.push_back(std::make_unique<FunctionThread>([&](FunctionThread&) {
            for (int round = 0; round < 1000; ++round) {
                auto own = std::make_unique<CXSafePointerTarget>();
                CXSafePointer<CXSafePointerTarget> pointer(&lasting);
                CXSafePointer<CXSafePointerTarget> copy(pointer);
                copy = own.get();
                pointer = copy.Get();
                own.reset();
                EXPECT_FALSE(pointer.IsSet() || copy.IsSet());
            }
        }));
        threads.back()->Start();
    }
    threads.clear(); // waits for each
}

TEST(Messages, BroadcastsReachTheListenersThatAreStillThere) {
    Journal journal;
    Receiver source(journal, "source");
    Receiver a(journal, "a");
    auto b = std::make_unique<Receiver>(journal, "b");
    Receiver c(journal, "c");
    Receiver d(journal, "d");
    for (CXMessageTarget* each :
         {static_cast<CXMessageTarget*>(&a), static_cast<CXMessageTarget*>(b.get()),
          static_cast<CXMessageTarget*>(&c), static_cast<CXMessageTarget*>(&a)}) {
        source.AddListener(each);
    }
    EXPECT_EQ(journal.Take(), "added added added") << "nobody twice";
    source.Broadcast(CXMessage(kPing));
    EXPECT_EQ(journal.Take(), "a b c");
    a.m_action = [&] {
        b.reset();
        source.RemoveListener(&c);
        source.AddListener(&d);
    };
    source.Broadcast(CXMessage(kPing));
    EXPECT_EQ(journal.Take(), "a removed added");
    a.m_action = nullptr;
    source.RemoveListener(&c);
    source.Broadcast(CXMessage(kPing));
    EXPECT_EQ(journal.Take(), "a d");
}

class TracedMessage : public CXMessage {
public:
    TracedMessage(Journal& journal, const char* name) : CXMessage(name), m_journal(journal) {}
    ~TracedMessage() override { m_journal.Add(std::string("~") + GetName().GetData()); }

private:
    Journal& m_journal;
};

class SharedThing : public DynamicReferenceCount {
public:
    explicit SharedThing(Journal& journal) : m_journal(journal) {}
    ~SharedThing() override { m_journal.Add("~shared"); }

private:
    Journal& m_journal;
};

class PostTest : public RuntimeTest {
protected:
    PostTest() : m_post(CXMessagePostTask::GetMainThreadSingleton()) {}
    std::unique_ptr<CXMessage> Make(const char* name) {
        return std::make_unique<TracedMessage>(m_journal, name);
    }
    std::string Pass() {
        RunMainTasks();
        return m_journal.Take();
    }

    Journal m_journal;
    CXMessagePost* const m_post;
};

TEST_F(PostTest, DeliveryFollowsDueTimeThenOrderOfPosting) {
    Receiver target(m_journal, ">");
    const int64_t now = CXTime::GetCurrentTime();
    m_post->Post(&target, Make("late"), {}, now + 50);
    m_post->Post(&target, Make("b"), {}, now - 10);
    m_post->Post(&target, Make("c"), {}, now - 10);
    m_post->Post(&target, Make("a"));
    EXPECT_EQ(m_post->CountWaiting(), 4u);
    const std::string first = Pass();
    if (CXTime::GetCurrentTime() < now + 50) {
        EXPECT_EQ(first, ">a ~a >b ~b >c ~c");
        EXPECT_EQ(m_post->CountWaiting(), 1u);
    }
    EXPECT_TRUE(RunMainTasksUntil([&] { return m_post->CountWaiting() == 0; }));
    EXPECT_GE(CXTime::GetCurrentTime(), now + 50);
    EXPECT_EQ(first.find("late") != std::string::npos ? "" : m_journal.Take(),
              first.find("late") != std::string::npos ? "" : ">late ~late");
}

TEST_F(PostTest, AnswersToOneselfWaitForTheNextPass) {
    Receiver target(m_journal, ">");
    target.m_action = [&] {
        EXPECT_EQ(m_post->GetCurrentTarget(), &target);
        m_post->Post(&target, Make("again"));
    };
    m_post->Post(&target, Make("first"));
    EXPECT_EQ(Pass(), ">first ~first");
    EXPECT_EQ(m_post->GetCurrentTarget(), nullptr);
    EXPECT_EQ(Pass(), ">again ~again");
    EXPECT_EQ(Pass(), ">again ~again");
}

TEST_F(PostTest, MessagesForTheDeadAreDeletedUndelivered) {
    auto target = std::make_unique<Receiver>(m_journal, ">");
    Receiver killer(m_journal, "!");
    killer.m_action = [&] { target.reset(); };
    m_post->Post(&killer, Make("k"));
    m_post->Post(target.get(), Make("x"), new SharedThing(m_journal));
    m_post->Post(nullptr, Make("n"));
    EXPECT_EQ(Pass(), "!k ~k ~x ~shared ~n");
    EXPECT_EQ(m_post->CountWaiting(), 0u);
}

TEST_F(PostTest, BroadcastsAndSharedObjects) {
    Receiver source(m_journal, "source");
    Receiver a(m_journal, "a");
    Receiver b(m_journal, "b");
    source.AddListener(&b);
    source.AddListener(&a);
    m_journal.Take();
    m_post->PostBroadcast(&source, Make("x"), new SharedThing(m_journal));
    EXPECT_EQ(Pass(), "bx ax ~x ~shared");
}

TEST_F(PostTest, ManyThreadsPost) {
    constexpr int kEach = 300;
    struct Counter : CXMessageTarget {
        CXResult ProcessMessage(const CXMessage& message) override {
            const auto value = static_cast<const CXMessageIntParam&>(message).GetValue();
            int64_t& last = m_last[value % 3];
            EXPECT_EQ(value / 3, last) << "one thread's messages keep their order";
            last = value / 3 + 1;
            ++m_count;
            return kCXResultOK;
        }
        int64_t m_last[3] = {};
        int m_count = 0;
    } counter;
    std::vector<std::unique_ptr<FunctionThread>> threads;
    for (int index = 0; index < 3; ++index) {
        threads.push_back(std::make_unique<FunctionThread>([&, index](FunctionThread&) {
            for (int round = 0; round < kEach; ++round) {
                m_post->Post(&counter, std::make_unique<CXMessageIntParam>(kPing, nullptr,
                                                                           round * 3 + index));
            }
        }));
        threads.back()->Start();
    }
    EXPECT_TRUE(RunMainTasksUntil([&] { return counter.m_count == 3 * kEach; }));
}

} // namespace
