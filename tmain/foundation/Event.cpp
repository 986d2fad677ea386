#include <tmain/foundation/Event.h>

#include <chrono>

namespace core {

Event::Event(bool manualReset, bool initiallySet) : mManualReset(manualReset), mSet(initiallySet) {}

void Event::set() {
    // Notify while holding the lock: a waiter may destroy the event as soon as
    // it wakes, so set() must be done with it by then.
    std::lock_guard<std::mutex> g(mMutex);
    mSet = true;
    if (mManualReset)
        mCond.notify_all();
    else
        mCond.notify_one();
}

void Event::reset() {
    std::lock_guard<std::mutex> g(mMutex);
    mSet = false;
}

bool Event::isSet() const {
    std::lock_guard<std::mutex> g(mMutex);
    return mSet;
}

Event::EWaitCode Event::wait(unsigned timeoutMs) {
    std::unique_lock<std::mutex> lk(mMutex);
    if (timeoutMs == INFINITE_WAIT) {
        mCond.wait(lk, [this] { return mSet; });
    } else if (!mCond.wait_for(lk, std::chrono::milliseconds(timeoutMs), [this] { return mSet; })) {
        return WAIT_TIMEOUT;
    }
    if (!mManualReset)
        mSet = false;
    return WAIT_SIGNALED;
}

void Event_mthread::set(bool signalled) {
    if (signalled)
        Event::set();
    else
        Event::reset();
}

} // namespace core
