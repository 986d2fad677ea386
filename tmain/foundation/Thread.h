#pragma once
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <tmain/Export.h>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/IRefCount.h>

namespace core {

/// A named thread. The OS thread carries the name. While the body runs the
/// thread holds a reference to its own object, so a started thread may be
/// released by its creator and still finish its work.
class TMAIN_API Thread : public IRefCount {
public:
    /// stackSize 0 (or anything below the platform's sane minimum) uses the
    /// system's default stack size.
    Thread(const char* name, unsigned stackSize = 0);
    ~Thread() override;

    /// Starts the body on a new OS thread; false when already started or the
    /// system refused.
    bool start();
    /// Waits for the body to end; true when it ended within timeoutMs.
    bool join(unsigned timeoutMs = INFINITE_WAIT);
    /// Asks the thread to stop (see terminate()).
    void finish() { terminate(0); }
    /// True once the body has ended.
    bool finished() const { return mFinished.load(); }
    bool started() const { return mStarted.load(); }
    const char* getName() const { return mName.c_str(); }

    static void sleep(unsigned ms);
    /// Gives the calling OS thread a name (truncated where the OS limits it).
    static void setCurrentThreadName(const char* name);
    /// The OS name of the calling thread, empty when unknown.
    static std::string getCurrentThreadName();

protected:
    virtual void onThreadStart() {}
    virtual void onThreadEnd() {}
    /// True once a stop was asked.
    bool terminateRequest() const { return mTerminate.load(); }
    /// Records a stop request and, with a non-zero timeout, waits that long
    /// for the body to end. Overrides wake their thread and call the base.
    virtual void terminate(unsigned timeoutMs);
    /// The thread body.
    virtual void threadMain() = 0;

private:
    struct Native;
    void run();
    bool nativeStart();
    /// Waits for the body to end, or for the OS thread to be gone without
    /// ending it (killed while the process exits); true when either came in time.
    bool nativeWaitEnd(unsigned timeoutMs);
    void nativeJoin();
    bool nativeIsCurrent() const;
    void nativeDetach();
    void nativeFree();
    friend struct ThreadEntry;

    std::string mName;
    unsigned mStackSize;
    std::atomic<bool> mStarted;
    std::atomic<bool> mFinished;
    std::atomic<bool> mTerminate;
    Event mDone;
    std::mutex mJoinMutex;
    bool mJoined;
    Native* mNative; // owned; defined by the platform file
};

/// Runs T::onRun() as the thread body.
template <class T> class Thread_Impl : public Thread {
public:
    Thread_Impl(const char* name, unsigned stackSize = 0) : Thread(name, stackSize) {}

protected:
    void threadMain() override { static_cast<T*>(this)->onRun(); }
};

} // namespace core
