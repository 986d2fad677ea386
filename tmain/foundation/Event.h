#pragma once
#include <condition_variable>
#include <mutex>
#include <tmain/Export.h>

namespace core {

/// Wait without a time limit.
static const unsigned INFINITE_WAIT = 0xFFFFFFFFu;

/// An event one thread waits on and another signals. An auto-reset event
/// releases one waiter and clears itself; a manual-reset one stays set until
/// reset() and releases every waiter.
class TMAIN_API Event {
public:
    enum EWaitCode { WAIT_SIGNALED = 0, WAIT_TIMEOUT = 1, WAIT_FAILED = 2 };

    Event(bool manualReset = false, bool initiallySet = false);
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void set();
    void reset();
    bool isSet() const;
    /// Waits at most timeoutMs milliseconds (INFINITE_WAIT: no limit).
    EWaitCode wait(unsigned timeoutMs = INFINITE_WAIT);

protected:
    mutable std::mutex mMutex;
    std::condition_variable mCond;
    bool mManualReset;
    bool mSet;
};

/// An event for several waiting threads: set(true) releases every current and
/// later waiter until set(false) clears it again.
class TMAIN_API Event_mthread : public Event {
public:
    explicit Event_mthread(bool initiallySet = false) : Event(true, initiallySet) {}
    void set(bool signalled = true);
};

} // namespace core
