#include <tmain/foundation/Thread.h>

namespace core {

Thread::Thread(const char* name, unsigned stackSize)
    : mName(name ? name : ""), mStackSize(stackSize), mStarted(false), mFinished(false), mTerminate(false),
      mDone(true, false), mJoined(false), mNative(nullptr) {}

Thread::~Thread() {
    // The body holds a reference while it runs, so by now it has ended (or
    // never started); only the OS handle is left to collect.
    if (mStarted.load()) {
        std::lock_guard<std::mutex> g(mJoinMutex);
        if (!mJoined) {
            if (nativeIsCurrent())
                nativeDetach();
            else
                nativeJoin();
            mJoined = true;
        }
    }
    nativeFree();
}

bool Thread::start() {
    bool expected = false;
    if (!mStarted.compare_exchange_strong(expected, true))
        return false;
    addRef(); // held by the running body
    if (!nativeStart()) {
        mStarted = false;
        releaseOwnership();
        return false;
    }
    return true;
}

void Thread::run() {
    setCurrentThreadName(mName.c_str());
    onThreadStart();
    threadMain();
    onThreadEnd();
    mFinished = true;
    mDone.set();
    decRef(); // may delete this object on its own thread
}

bool Thread::join(unsigned timeoutMs) {
    if (!mStarted.load())
        return true;
    if (nativeIsCurrent())
        return false;
    if (!nativeWaitEnd(timeoutMs))
        return false;
    std::lock_guard<std::mutex> g(mJoinMutex);
    if (!mJoined) {
        nativeJoin();
        mJoined = true;
    }
    return true;
}

void Thread::terminate(unsigned timeoutMs) {
    mTerminate = true;
    if (timeoutMs)
        join(timeoutMs);
}

} // namespace core
