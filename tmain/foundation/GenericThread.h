#pragma once
#include <deque>
#include <tmain/Export.h>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/foundation/Thread.h>

namespace core {

enum ETaskPriority { TP_LOW = 0, TP_NORMAL = 1, TP_HIGH = 2 };

/// A unit of work run by a Runnable. Killing a process that has not run yet
/// keeps it from running; a running one may poll isKilled().
class TMAIN_API Process : public IRefCount {
public:
    Process();
    ~Process() override;
    void kill() { mKilled = true; }
    bool isKilled() const { return mKilled.load(); }
    /// The work itself.
    virtual void run() = 0;

private:
    std::atomic<bool> mKilled;
};

/// Process-wide registry of live processes.
class TMAIN_API ProcessScheduler {
public:
    /// Kills every live process; with `wait` true, also waits until no process
    /// is running any more.
    static void killProcesses(bool wait);
    /// Number of processes alive (queued or running).
    static unsigned liveProcesses();

private:
    friend class Process;
    friend class Runnable;
    static void added(Process* p);
    static void removed(Process* p);
    static void runningChanged(int delta);
};

/// A thread with a task queue: tasks are posted from any thread and run in
/// priority order (first in, first out within a priority) on this thread.
class TMAIN_API Runnable : public Thread {
public:
    Runnable(const char* name, unsigned stackSize = 0);
    ~Runnable() override;

    /// Queues a task (the queue takes a reference) and wakes the thread.
    void onPostTask(Process* process, ETaskPriority priority = TP_NORMAL);
    /// Runs every queued task on the calling thread; returns how many ran.
    unsigned processTasks();
    unsigned pendingTasks() const;

protected:
    void terminate(unsigned timeoutMs) override;
    Event mWake;

private:
    struct Entry {
        ETaskPriority priority;
        SmartPtr<Process> process;
    };
    mutable CriticalSection mQueueCS;
    std::deque<Entry> mQueue;
};

/// A Runnable whose body processes its queue until asked to stop, or, with
/// exitWhenIdle, until the queue is empty: a one-shot worker that a caller
/// can start and forget.
class TMAIN_API GenericThread : public Runnable {
public:
    GenericThread(const char* name, bool exitWhenIdle = false, unsigned stackSize = 0);

protected:
    void threadMain() override;

private:
    bool mExitWhenIdle;
};

} // namespace core
