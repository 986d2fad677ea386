#include <tmain/foundation/GenericThread.h>

#include <condition_variable>
#include <mutex>
#include <set>

namespace core {

namespace {
struct Registry {
    std::mutex mutex;
    std::condition_variable idle;
    std::set<Process*> live;
    int running = 0;
};
Registry& registry() {
    static Registry* r = new Registry(); // never destroyed: processes may outlive static destruction
    return *r;
}
} // namespace

Process::Process() : mKilled(false) {
    ProcessScheduler::added(this);
}
Process::~Process() {
    ProcessScheduler::removed(this);
}

void ProcessScheduler::added(Process* p) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.live.insert(p);
}

void ProcessScheduler::removed(Process* p) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.live.erase(p);
}

void ProcessScheduler::runningChanged(int delta) {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    r.running += delta;
    if (r.running == 0)
        r.idle.notify_all();
}

void ProcessScheduler::killProcesses(bool wait) {
    Registry& r = registry();
    std::unique_lock<std::mutex> lk(r.mutex);
    for (Process* p : r.live)
        p->kill();
    if (wait)
        r.idle.wait(lk, [&r] { return r.running == 0; });
}

unsigned ProcessScheduler::liveProcesses() {
    Registry& r = registry();
    std::lock_guard<std::mutex> g(r.mutex);
    return (unsigned)r.live.size();
}

Runnable::Runnable(const char* name, unsigned stackSize) : Thread(name, stackSize), mWake(false, false) {}

Runnable::~Runnable() {}

void Runnable::onPostTask(Process* process, ETaskPriority priority) {
    if (!process)
        return;
    {
        Lock lock(mQueueCS);
        auto it = mQueue.begin();
        while (it != mQueue.end() && it->priority >= priority)
            ++it;
        mQueue.insert(it, Entry{priority, SmartPtr<Process>(process)});
    }
    mWake.set();
}

unsigned Runnable::processTasks() {
    unsigned count = 0;
    for (;;) {
        SmartPtr<Process> next;
        {
            Lock lock(mQueueCS);
            if (mQueue.empty())
                break;
            next = mQueue.front().process;
            mQueue.pop_front();
        }
        if (next->isKilled())
            continue;
        ProcessScheduler::runningChanged(+1);
        try {
            next->run();
        } catch (...) {
            // A task's failure is its own business; the queue goes on.
        }
        next.reset();
        ProcessScheduler::runningChanged(-1);
        ++count;
    }
    return count;
}

unsigned Runnable::pendingTasks() const {
    Lock lock(mQueueCS);
    return (unsigned)mQueue.size();
}

void Runnable::terminate(unsigned timeoutMs) {
    Thread::terminate(0);
    mWake.set();
    if (timeoutMs)
        join(timeoutMs);
}

GenericThread::GenericThread(const char* name, bool exitWhenIdle, unsigned stackSize)
    : Runnable(name, stackSize), mExitWhenIdle(exitWhenIdle) {}

void GenericThread::threadMain() {
    while (!terminateRequest()) {
        processTasks();
        if (mExitWhenIdle && pendingTasks() == 0)
            break;
        mWake.wait();
    }
}

} // namespace core
