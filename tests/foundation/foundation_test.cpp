// Reference counting, type records, exceptions, locks, events, threads,
// futures, task queues, singletons, callbacks and the logger.
#include "../support/TestSupport.h"
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
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
#include <vector>

/// Sets (or, for null, removes) an environment variable of this process
/// (foundation_posix.cpp, foundation_win32.cpp).
void setEnv(const char* name, const char* value);

namespace {

using tmaintest::onThreads;

struct Counted : core::IRefCount {
    static inline std::atomic<int> alive{0};
    Counted() { ++alive; }
    ~Counted() override { --alive; }
};

TEST(RefCount, CountsFromZeroAndDeletesAtZeroUnderContention) {
    Counted* c = new Counted();
    EXPECT_EQ(0, c->getRefCount());
    {
        core::SmartPtr<Counted> holder(c);
        EXPECT_EQ(1, c->getRefCount());
        onThreads(8, [c](int) {
            for (int i = 0; i < 20000; ++i) {
                core::SmartPtr<Counted> a(c);
                core::SmartPtr<Counted> b = a;
                core::SmartPtr<Counted> m(std::move(b));
                a = nullptr;
            }
        });
        EXPECT_TRUE(c->getRefCount() == 1 && Counted::alive == 1);
    }
    EXPECT_EQ(0, Counted::alive.load());

    // detach() hands an object over without deleting it, as factories do.
    core::SmartPtr<Counted> p(new Counted());
    Counted* raw = p.detach();
    EXPECT_EQ(1, Counted::alive.load());
    core::SmartPtr<Counted> again(raw); // count back at zero: this release deletes it
    again.reset();
    EXPECT_EQ(0, Counted::alive.load());
}

const core::Type kBase("test::Base");
const core::Type kMid("test::Mid", &kBase);
const core::Type kLeaf("test::Leaf", &kMid);
const core::Type kOther("test::Other");

TEST(TypeRecords, AncestryAndReflectionByName) {
    EXPECT_TRUE(kLeaf.instanceOf(kLeaf) && kLeaf.instanceOf(kBase));
    EXPECT_FALSE(kBase.instanceOf(kLeaf) || kLeaf.instanceOf(kOther));
    EXPECT_JOINED("1|1|1||0|", core::Type::Reflection()["test::Mid"] == &kMid,
                  core::Type::Reflection()["test::Nope"] == nullptr,
                  core::Type::Reflection()["core::Exception"] == &core::Exception::TYPE,
                  core::Type::NOTYPE.getName(), core::Type::NOTYPE.getParentCount());
}

TEST(Exceptions, FormatTruncateCloneAndRethrowOnAnotherThread) {
    core::IllegalArgumentException e("value %d of %s", 42, "x");
    EXPECT_STREQ("value 42 of x", e.getMessage());
    EXPECT_TRUE(e.instanceOf(core::Exception::TYPE) && !e.instanceOf(core::IllegalStateException::TYPE));

    // The message buffer is the format's length plus 1024 bytes.
    EXPECT_EQ(strlen("%s") + 1023,
              strlen(core::Exception("%s", std::string(5000, 'a').c_str()).getMessage()));

    core::IllegalStateException inner("inner");
    core::IllegalArgumentException outer("outer %d", &inner, 7);
    ASSERT_NE(nullptr, outer.getCause());
    EXPECT_JOINED("outer 7|core::IllegalStateException|", outer.getMessage(),
                  outer.getCause()->getType().getName());

    // Stored on one thread, rethrown with its dynamic type on another.
    std::unique_ptr<core::Exception> stored;
    std::thread([&] {
        const core::Exception& ex = core::UnsupportedOperationException("op %s", "x");
        stored.reset(ex.clone());
    }).join();
    ASSERT_NE(nullptr, stored);
    EXPECT_STREQ("core::UnsupportedOperationException", stored->getType().getName());
    EXPECT_MESSAGE(core::UnsupportedOperationException, "op x", stored->rethrow());
}

TEST(Locks, RecursiveCriticalSectionExcludesOtherThreads) {
    core::CriticalSection cs;
    auto otherThreadEnters = [&cs] {
        bool entered = false;
        std::thread([&] {
            if ((entered = cs.tryEnter()))
                cs.leave();
        }).join();
        return entered;
    };
    {
        core::Lock a(cs);
        core::Lock b(cs); // recursive
        EXPECT_FALSE(otherThreadEnters());
    }
    EXPECT_TRUE(otherThreadEnters());

    long counter = 0;
    onThreads(4, [&](int) {
        for (int i = 0; i < 50000; ++i) {
            core::Lock l(cs);
            ++counter;
        }
    });
    EXPECT_EQ(200000, counter);
}

TEST(Events, AutoResetReleasesOneManualResetReleasesAll) {
    core::Event autoEv(false, true); // the first wait clears it
    EXPECT_TRUE(autoEv.wait(0) == core::Event::WAIT_SIGNALED && autoEv.wait(0) == core::Event::WAIT_TIMEOUT);

    core::Event manual(true, false);
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, manual.wait(1));
    manual.set();
    EXPECT_TRUE(manual.wait(0) == core::Event::WAIT_SIGNALED && manual.wait(0) == core::Event::WAIT_SIGNALED);
    manual.reset();
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, manual.wait(0));

    core::Event_mthread all;
    std::atomic<int> woke{0};
    onThreads(7, [&](int i) {
        if (i == 0)
            all.set(true);
        else
            woke += all.wait() == core::Event::WAIT_SIGNALED;
    });
    EXPECT_EQ(6, woke.load());
    all.set(false);
    EXPECT_EQ(core::Event::WAIT_TIMEOUT, all.wait(0));
}

struct GateThread : core::Thread_Impl<GateThread> {
    core::Event *gate, *done;
    std::string seenName;
    GateThread(core::Event* g, core::Event* d)
        : core::Thread_Impl<GateThread>("GateWorker", 512), gate(g), done(d) {}
    void onRun() {
        seenName = core::Thread::getCurrentThreadName();
        gate->wait();
        done->set();
    }
};

TEST(Threads, NameJoinLimitAndFinish) {
    core::Event gate(true, false), done(true, false);
    core::SmartPtr<GateThread> t(new GateThread(&gate, &done));
    EXPECT_FALSE(t->finished());
    ASSERT_TRUE(t->start());
    EXPECT_FALSE(t->start()); // only once
    EXPECT_FALSE(t->join(5)); // blocked on the gate: cannot have ended
    gate.set();
    EXPECT_TRUE(t->join() && t->finished());
    EXPECT_EQ("GateWorker", t->seenName); // the OS thread carries the name

    // A released thread keeps itself alive until its body ends.
    gate.reset();
    done.reset();
    ASSERT_TRUE(core::SmartPtr<GateThread>(new GateThread(&gate, &done))->start());
    gate.set();
    EXPECT_EQ(core::Event::WAIT_SIGNALED, done.wait());
}

TEST(Futures, CompleteOnceErrorsAndManyWaiters) {
    core::Future<unsigned> f;
    EXPECT_FALSE(f.isCompleted() || f.wait(1));
    std::atomic<int> seen{0};
    onThreads(5, [f, &seen](int i) mutable {
        if (i == 0)
            f.complete(77);
        else
            seen += f.wait() && f.getResult() == 77u;
    });
    EXPECT_EQ(4, seen.load());
    EXPECT_FALSE(f.complete(5) || f.hasError()); // first completion wins
    EXPECT_TRUE(f.getResult() == 77u && f.getEvent().wait(0) == core::Event::WAIT_SIGNALED);

    core::Future<void> v;
    EXPECT_TRUE(v.fail(3, "broken") && !v.complete());
    EXPECT_TRUE(v.wait(0) && v.hasError() && v.getErrorCode() == 3 && v.getErrorMessage() == "broken");

    // Many producers racing: exactly one wins.
    for (int round = 0; round < 50; ++round) {
        core::Future<int> r;
        std::atomic<int> winners{0};
        onThreads(4, [r, &winners](int i) mutable { winners += i % 2 ? r.complete(i) : r.fail(i, "x"); });
        EXPECT_EQ(1, winners.load());
    }
}

struct Append : core::Process {
    std::vector<int>* out;
    int value;
    Append(std::vector<int>* o, int v) : out(o), value(v) {}
    void run() override { out->push_back(value); }
};

TEST(GenericThreads, TasksRunInPriorityOrderAndKilledOnesAreSkipped) {
    // Everything is queued before the thread starts, so the order is the queue's.
    std::vector<int> order;
    core::SmartPtr<core::GenericThread> t(new core::GenericThread("Tasks", true));
    int value = 0;
    for (auto priority : {core::TP_LOW, core::TP_HIGH, core::TP_NORMAL, core::TP_HIGH})
        t->onPostTask(new Append(&order, ++value), priority);
    core::SmartPtr<Append> killed(new Append(&order, 99));
    t->onPostTask(killed.get(), core::TP_HIGH);
    killed->kill();
    EXPECT_EQ(5u, t->pendingTasks());
    ASSERT_TRUE(t->start());
    EXPECT_TRUE(t->join()); // exitWhenIdle: ends once the queue is empty
    EXPECT_EQ((std::vector<int>{2, 4, 3, 1}), order);
}

class Lonely : public core::IRefCount {
    friend class core::Singleton<Lonely>;
    Lonely() { ++created; }
    ~Lonely() override { ++destroyed; }

public:
    static inline int created = 0, destroyed = 0;
};

TEST(Singletons, CreatedOnceAndLeakMessageWhenStillReferenced) {
    tmaintest::ScopedLogCapture log;
    Lonely::created = Lonely::destroyed = 0;
    Lonely* a = core::Singleton<Lonely>::getSingleton();
    std::atomic<int> same{0};
    onThreads(4, [&](int) { same += core::Singleton<Lonely>::getSingleton() == a; });
    EXPECT_TRUE(same == 4 && Lonely::created == 1);
    core::SmartPtr<Lonely> extra(a);
    core::Singleton<Lonely>::deleteSingleton();
    EXPECT_TRUE(log->contains("Singleton::deleteSingleton. Other references to obj still alive"));
    EXPECT_EQ(0, Lonely::destroyed);
    extra.reset();
    EXPECT_TRUE(Lonely::destroyed == 1 && !core::Singleton<Lonely>::exists());
}

struct Adder {
    int base;
    int add(int v) { return base + v; }
};
int twice(int v) {
    return 2 * v;
}

TEST(Callbacks, FunctionsMembersAndEmpty) {
    core::Callback<int, int> fn(&twice);
    EXPECT_TRUE((core::Callback<int, int>().empty()) && !fn.empty());
    EXPECT_EQ(14, fn(7));
    Adder a{10};
    core::Callback<int, int> member(&a, &Adder::add);
    a.base = 20;
    EXPECT_EQ(27, member(7)); // bound to the object, not a copy
}

TEST(Logger, LevelsCausesThresholdAndEnvironment) {
    logging::Logger& root = logging::Logger::mROOT_LOGGER;
    ASSERT_TRUE(&root == &logging::Logger::getRootLogger() && root.getConsoleAppender());
    {
        tmaintest::ScopedLogCapture log;
        root.info("count=%d name=%s", 3, "x");
        core::IllegalStateException cause("disk %s", "full");
        root.error("Error writing object #%d", &cause, 4);
        root.warn("warned %s", &cause, "y");
        EXPECT_EQ((std::vector<std::string>{"count=3 name=x",
                                            "Error writing object #4: core::IllegalStateException: disk full",
                                            "warned y: core::IllegalStateException: disk full"}),
                  log->messages());
        EXPECT_EQ(2u, log->messages(logging::LEVEL_WARN).size());
    }

    // The console appender's threshold: WARN by default, TMAIN_LOG_LEVEL overrides.
    const char* saved = getenv("TMAIN_LOG_LEVEL");
    std::string savedValue = saved ? saved : "";
    const std::pair<const char*, logging::Level> cases[] = {
        {nullptr, logging::LEVEL_WARN}, {"debug", logging::LEVEL_DEBUG}, {"bogus", logging::LEVEL_WARN}};
    for (auto [env, want] : cases) {
        setEnv("TMAIN_LOG_LEVEL", env);
        EXPECT_EQ(want,
                  core::SmartPtr<logging::ConsoleAppender>(new logging::ConsoleAppender())->getThreshold())
            << (env ? env : "unset");
    }
    setEnv("TMAIN_LOG_LEVEL", saved ? savedValue.c_str() : nullptr);

    // The layout carries level and message.
    logging::LogEvent e{logging::LEVEL_ERROR, "root", "boom", 0, "IOThread"};
    EXPECT_NE(std::string::npos, logging::SimpleLayout().format(e).find("ERROR [IOThread] boom\n"));

    // Concurrent logging loses nothing.
    tmaintest::ScopedLogCapture log;
    onThreads(4, [](int t) {
        for (int i = 0; i < 500; ++i)
            logging::Logger::mROOT_LOGGER.debug("t%d-%d", t, i);
    });
    EXPECT_EQ(2000u, log->messages().size());
}

} // namespace
