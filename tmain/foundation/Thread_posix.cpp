#include <tmain/foundation/Thread.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <pthread.h>

namespace core {

struct Thread::Native {
    pthread_t handle;
};

struct ThreadEntry {
    static void* entry(void* arg) {
        static_cast<Thread*>(arg)->run();
        return nullptr;
    }
};

bool Thread::nativeStart() {
    if (!mNative)
        mNative = new Native();
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    // Small stack requests (Windows code asks for a few hundred bytes and gets
    // the system minimum) use the default size here.
    const size_t minStack = 256 * 1024;
    if (mStackSize >= minStack)
        pthread_attr_setstacksize(&attr, mStackSize);
    int rc = pthread_create(&mNative->handle, &attr, &ThreadEntry::entry, this);
    pthread_attr_destroy(&attr);
    return rc == 0;
}

void Thread::nativeFree() {
    delete mNative;
    mNative = nullptr;
}

bool Thread::nativeWaitEnd(unsigned timeoutMs) {
    return mDone.wait(timeoutMs) == Event::WAIT_SIGNALED;
}

void Thread::nativeJoin() {
    pthread_join(mNative->handle, nullptr);
}

void Thread::nativeDetach() {
    pthread_detach(mNative->handle);
}

bool Thread::nativeIsCurrent() const {
    return mNative && mStarted.load() && pthread_equal(mNative->handle, pthread_self());
}

void Thread::sleep(unsigned ms) {
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = (long)(ms % 1000) * 1000000L;
    while (nanosleep(&ts, &ts) == -1 && errno == EINTR) {
    }
}

namespace {
// The calling thread's name as last set or read, so that asking for it (the
// logger does, for every message) costs no system call. Plain storage: it
// stays valid while other thread-local destructors still log.
thread_local char tCurrentName[16];
thread_local bool tCurrentNameKnown = false;
} // namespace

void Thread::setCurrentThreadName(const char* name) {
    // Linux limits thread names to 15 characters plus the terminator.
    size_t i = 0;
    for (; name && name[i] && i < sizeof(tCurrentName) - 1; ++i)
        tCurrentName[i] = name[i];
    tCurrentName[i] = 0;
    tCurrentNameKnown = true;
    pthread_setname_np(pthread_self(), tCurrentName);
}

std::string Thread::getCurrentThreadName() {
    if (!tCurrentNameKnown) {
        char buf[64] = {0};
        if (pthread_getname_np(pthread_self(), buf, sizeof(buf)) != 0)
            return std::string();
        size_t i = 0;
        for (; buf[i] && i < sizeof(tCurrentName) - 1; ++i)
            tCurrentName[i] = buf[i];
        tCurrentName[i] = 0;
        tCurrentNameKnown = true;
    }
    return tCurrentName;
}

} // namespace core
