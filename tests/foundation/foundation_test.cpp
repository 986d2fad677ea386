// Reference counting, type records, exceptions, locks, events, threads,
// futures, task queues, singletons, callbacks and the logger.
#include "../support/TestSupport.h"
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <tmain/foundation/Callback.h>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Future.h>
#include <tmain/foundation/GenericThread.h>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/Singleton.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/foundation/Thread.h>
#include <tmain/foundation/Timer.h>
#include <vector>

namespace {

struct Counted : core::IRefCount {
    static std::atomic<int> alive;
    Counted() { ++alive; }
    ~Counted() override { --alive; }
};
std::atomic<int> Counted::alive{0};

TEST(RefCount, CountsFromZeroAndDeletesAtZeroUnderContention) {
    Counted* c = new Counted();
    EXPECT_EQ(0, c->getRefCount());
    {
        core::SmartPtr<Counted> holder(c);
        EXPECT_EQ(1, c->getRefCount());
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([c] {
                for (int i = 0; i < 20000; ++i) {
                    core::SmartPtr<Counted> a(c);
                    core::SmartPtr<Counted> b = a;
                    core::SmartPtr<Counted> m(std::move(b));
                    a = nullptr;
                }
            });
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(1, c->getRefCount());
        EXPECT_EQ(1, Counted::alive.load());
    }
    EXPECT_EQ(0, Counted::alive.load());

    // detach() hands an object over without deleting it, as factories do.
    core::SmartPtr<Counted> p(new Counted());
    Counted* raw = p.detach();
    EXPECT_EQ(0, raw->getRefCount());
    EXPECT_EQ(1, Counted::alive.load());
    core::SmartPtr<Counted> again(raw);
    again.reset();
    EXPECT_EQ(0, Counted::alive.load());
}

const core::Type kBase("test::Base");
const core::Type kMid("test::Mid", &kBase);
const core::Type kLeaf("test::Leaf", &kMid);
const core::Type kOther("test::Other");

TEST(TypeRecords, AncestryAndReflectionByName) {
    EXPECT_TRUE(kLeaf.instanceOf(kLeaf));
    EXPECT_TRUE(kLeaf.instanceOf(kBase));
    EXPECT_FALSE(kBase.instanceOf(kLeaf));
    EXPECT_FALSE(kLeaf.instanceOf(kOther));
    EXPECT_EQ(&kMid, core::Type::Reflection()["test::Mid"]);
    EXPECT_EQ(nullptr, core::Type::Reflection()["test::Nope"]);
    EXPECT_EQ(&core::Exception::TYPE, core::Type::Reflection()["core::Exception"]);
    EXPECT_STREQ("", core::Type::NOTYPE.getName());
    EXPECT_EQ(0u, core::Type::NOTYPE.getParentCount());
}

TEST(Exceptions, FormatTruncateCloneAndRethrowOnAnotherThread) {
    core::IllegalArgumentException e("value %d of %s", 42, "x");
    EXPECT_STREQ("value 42 of x", e.getMessage());
    EXPECT_TRUE(e.instanceOf(core::Exception::TYPE));
    EXPECT_FALSE(e.instanceOf(core::IllegalStateException::TYPE));

    // The message buffer is the format's length plus 1024 bytes.
    std::string big(5000, 'a');
    core::Exception t("%s", big.c_str());
    EXPECT_EQ(strlen("%s") + 1023, strlen(t.getMessage()));

    core::IllegalStateException inner("inner");
    core::IllegalArgumentException outer("outer %d", &inner, 7);
    EXPECT_STREQ("outer 7", outer.getMessage());
    ASSERT_NE(nullptr, outer.getCause());
    EXPECT_EQ(&core::IllegalStateException::TYPE, &outer.getCause()->getType());

    // Stored on one thread, rethrown with its dynamic type on another.
    core::Exception* stored = nullptr;
    std::thread([&] {
        try {
            throw core::UnsupportedOperationException("op %s", "x");
        } catch (const core::Exception& ex) {
            stored = ex.clone();
        }
    }).join();
    ASSERT_NE(nullptr, stored);
    EXPECT_THROW(stored->rethrow(), core::UnsupportedOperationException);
    try {
        stored->rethrow();
    } catch (const core::Exception& ex) {
        EXPECT_STREQ("op x", ex.getMessage());
        EXPECT_STREQ("core::UnsupportedOperationException", ex.getType().getName());
    }
    delete stored;
}

TEST(Locks, RecursiveCriticalSectionExcludesOtherThreads) {
    core::CriticalSection cs;
    {
        core::Lock a(cs);
        core::Lock b(cs); // recursive
        bool other = true;
        std::thread([&] { other = cs.tryEnter(); }).join();
        EXPECT_FALSE(other);
    }
    bool other = false;
    std::thread([&] {
        other = cs.tryEnter();
        if (other)
            cs.leave();
    }).join();
    EXPECT_TRUE(other);

    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 50000; ++i) {
                core::Lock l(cs);
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(200000, counter);
}

TEST(Events, AutoResetReleasesOneManualResetReleasesAll) {
    core::Event autoEv(false, true);
    EXPECT_EQ(core::Event::WAIT_SIGNALED, autoEv.wait(0));
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, autoEv.wait(0)); // cleared by the first wait

    core::Event manual(true, false);
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, manual.wait(1));
    manual.set();
    EXPECT_EQ(core::Event::WAIT_SIGNALED, manual.wait(0));
    EXPECT_EQ(core::Event::WAIT_SIGNALED, manual.wait(0));
    manual.reset();
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, manual.wait(0));

    core::Event_mthread all;
    std::atomic<int> woke{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 6; ++i)
        waiters.emplace_back([&] {
            if (all.wait() == core::Event::WAIT_SIGNALED)
                ++woke;
        });
    all.set(true);
    for (auto& w : waiters)
        w.join();
    EXPECT_EQ(6, woke.load());
    all.set(false);
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, all.wait(0));
}

class GateThread : public core::Thread_Impl<GateThread> {
public:
    GateThread() : core::Thread_Impl<GateThread>("GateWorker", 512), gate(true, false) {}
    void onRun() {
        seenName = core::Thread::getCurrentThreadName();
        gate.wait();
        while (!terminateRequest() && !stopOnGate)
            gate.wait(core::INFINITE_WAIT);
    }
    void stop() { terminate(0); }
    core::Event gate;
    std::string seenName;
    bool stopOnGate = true;
};

TEST(Threads, NameJoinLimitAndFinish) {
    core::SmartPtr<GateThread> t(new GateThread());
    EXPECT_FALSE(t->finished());
    ASSERT_TRUE(t->start());
    EXPECT_FALSE(t->start()); // only once
    EXPECT_FALSE(t->join(5)); // blocked on the gate: cannot have ended
    t->gate.set();
    EXPECT_TRUE(t->join());
    EXPECT_TRUE(t->finished());
    EXPECT_EQ("GateWorker", t->seenName); // the OS thread carries the name

    // A released thread keeps itself alive until its body ends.
    core::Event done(true, false);
    struct Self : core::Thread_Impl<Self> {
        core::Event* done;
        core::Event* go;
        Self(core::Event* d, core::Event* g) : core::Thread_Impl<Self>("Self"), done(d), go(g) {}
        void onRun() {
            go->wait();
            done->set();
        }
    };
    core::Event go(true, false);
    {
        core::SmartPtr<Self> s(new Self(&done, &go));
        s->start();
    }
    go.set();
    EXPECT_EQ(core::Event::WAIT_SIGNALED, done.wait());
}

TEST(Futures, CompleteOnceErrorsAndManyWaiters) {
    core::Future<unsigned> f;
    EXPECT_FALSE(f.isCompleted());
    EXPECT_FALSE(f.wait(1));
    std::atomic<int> seen{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([f, &seen] {
            if (f.wait() && f.getResult() == 77u)
                ++seen;
        });
    std::thread producer([f]() mutable { f.complete(77); });
    producer.join();
    for (auto& w : waiters)
        w.join();
    EXPECT_EQ(4, seen.load());
    EXPECT_FALSE(f.complete(5)); // first completion wins
    EXPECT_EQ(77u, f.getResult());
    EXPECT_FALSE(f.hasError());
    EXPECT_EQ(core::Event::WAIT_SIGNALED, f.getEvent().wait(0));

    core::Future<void> v;
    EXPECT_TRUE(v.fail(3, "broken"));
    EXPECT_FALSE(v.complete());
    EXPECT_TRUE(v.wait(0));
    EXPECT_TRUE(v.hasError());
    EXPECT_EQ(3, v.getErrorCode());
    EXPECT_EQ("broken", v.getErrorMessage());

    // Many producers racing: exactly one wins.
    for (int round = 0; round < 50; ++round) {
        core::Future<int> r;
        std::atomic<int> winners{0};
        std::vector<std::thread> ps;
        for (int i = 0; i < 4; ++i)
            ps.emplace_back([r, i, &winners]() mutable {
                if (i % 2 ? r.complete(i) : r.fail(i, "x"))
                    ++winners;
            });
        for (auto& p : ps)
            p.join();
        EXPECT_EQ(1, winners.load());
    }
}

struct Append : core::Process {
    std::vector<int>* out;
    int value;
    core::Event* gate;
    Append(std::vector<int>* o, int v, core::Event* g = nullptr) : out(o), value(v), gate(g) {}
    void run() override {
        if (gate)
            gate->wait();
        out->push_back(value);
    }
};

TEST(GenericThreads, TasksRunInPriorityOrderAndKilledOnesAreSkipped) {
    // Everything is queued before the thread starts, so the order is the queue's.
    std::vector<int> order;
    core::SmartPtr<core::GenericThread> t(new core::GenericThread("Tasks", true));
    t->onPostTask(new Append(&order, 1), core::TP_LOW);
    t->onPostTask(new Append(&order, 2), core::TP_HIGH);
    t->onPostTask(new Append(&order, 3), core::TP_NORMAL);
    t->onPostTask(new Append(&order, 4), core::TP_HIGH);
    core::SmartPtr<Append> killed(new Append(&order, 99));
    t->onPostTask(killed.get(), core::TP_HIGH);
    killed->kill();
    EXPECT_EQ(5u, t->pendingTasks());
    ASSERT_TRUE(t->start());
    EXPECT_TRUE(t->join());
    EXPECT_EQ((std::vector<int>{2, 4, 3, 1}), order);

    // exitWhenIdle: a fire-and-forget worker runs its task and ends.
    std::vector<int> single;
    core::SmartPtr<core::GenericThread> w(new core::GenericThread("Once", true));
    w->onPostTask(new Append(&single, 5));
    w->start();
    EXPECT_TRUE(w->join());
    EXPECT_EQ(std::vector<int>{5}, single);
}

class Lonely : public core::IRefCount {
    friend class core::Singleton<Lonely>;
    Lonely() { ++created; }
    ~Lonely() override { ++destroyed; }

public:
    static int created, destroyed;
};
int Lonely::created = 0, Lonely::destroyed = 0;

TEST(Singletons, CreatedOnceAndLeakMessageWhenStillReferenced) {
    tmaintest::ScopedLogCapture log;
    Lonely* a = core::Singleton<Lonely>::getSingleton();
    std::vector<std::thread> ts;
    std::atomic<int> same{0};
    for (int i = 0; i < 4; ++i)
        ts.emplace_back([&] { same += core::Singleton<Lonely>::getSingleton() == a; });
    for (auto& t : ts)
        t.join();
    EXPECT_EQ(4, same.load());
    EXPECT_EQ(1, Lonely::created);
    core::SmartPtr<Lonely> extra(a);
    core::Singleton<Lonely>::deleteSingleton();
    EXPECT_TRUE(log->contains("Singleton::deleteSingleton. Other references to obj still alive"));
    EXPECT_EQ(0, Lonely::destroyed);
    extra.reset();
    EXPECT_EQ(1, Lonely::destroyed);
    EXPECT_FALSE(core::Singleton<Lonely>::exists());
}

struct Adder {
    int base;
    int add(int v) { return base + v; }
};
int twice(int v) {
    return 2 * v;
}

TEST(Callbacks, FunctionsMembersAndEmpty) {
    core::Callback<int, int> empty;
    EXPECT_TRUE(empty.empty());
    core::Callback<int, int> fn(&twice);
    EXPECT_EQ(14, fn(7));
    Adder a{10};
    core::Callback<int, int> member(&a, &Adder::add);
    EXPECT_EQ(17, member(7));
    a.base = 20;
    EXPECT_EQ(27, member(7)); // bound to the object, not a copy
}

TEST(Logger, LevelsCausesThresholdAndEnvironment) {
    logging::Logger& root = logging::Logger::mROOT_LOGGER;
    EXPECT_EQ(&root, &logging::Logger::getRootLogger());
    tmaintest::ScopedLogCapture log;
    root.info("count=%d name=%s", 3, "x");
    core::IllegalStateException cause("disk %s", "full");
    root.error("Error writing object #%d", &cause, 4);
    root.warn("warned %s", &cause, "y");
    auto all = log->messages();
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ("count=3 name=x", all[0]);
    EXPECT_EQ("Error writing object #4: core::IllegalStateException: disk full", all[1]);
    EXPECT_EQ("warned y: core::IllegalStateException: disk full", all[2]);
    EXPECT_EQ(2u, log->messages(logging::LEVEL_WARN).size());

    // The console appender's threshold: WARN by default, TMAIN_LOG_LEVEL overrides.
    const char* saved = getenv("TMAIN_LOG_LEVEL");
    std::string savedValue = saved ? saved : "";
    unsetenv("TMAIN_LOG_LEVEL");
    core::SmartPtr<logging::ConsoleAppender> def(new logging::ConsoleAppender());
    EXPECT_EQ(logging::LEVEL_WARN, def->getThreshold());
    setenv("TMAIN_LOG_LEVEL", "debug", 1);
    core::SmartPtr<logging::ConsoleAppender> dbg(new logging::ConsoleAppender());
    EXPECT_EQ(logging::LEVEL_DEBUG, dbg->getThreshold());
    setenv("TMAIN_LOG_LEVEL", "bogus", 1);
    core::SmartPtr<logging::ConsoleAppender> bogus(new logging::ConsoleAppender());
    EXPECT_EQ(logging::LEVEL_WARN, bogus->getThreshold());
    if (saved)
        setenv("TMAIN_LOG_LEVEL", savedValue.c_str(), 1);
    else
        unsetenv("TMAIN_LOG_LEVEL");
    ASSERT_NE(nullptr, root.getConsoleAppender());

    // The layout carries level and message.
    logging::SimpleLayout layout;
    logging::LogEvent e{logging::LEVEL_ERROR, "root", "boom", 0, "IOThread"};
    std::string line = layout.format(e);
    EXPECT_NE(std::string::npos, line.find("ERROR [IOThread] boom\n"));
}

TEST(Logger, ConcurrentLoggingLosesNothing) {
    tmaintest::ScopedLogCapture log;
    std::vector<std::thread> ts;
    for (int t = 0; t < 4; ++t)
        ts.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                logging::Logger::mROOT_LOGGER.debug("t%d-%d", t, i);
        });
    for (auto& t : ts)
        t.join();
    EXPECT_EQ(2000u, log->messages().size());
}

} // namespace
