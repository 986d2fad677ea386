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

void Thread::setCurrentThreadName(const char* name) {
    // Linux limits thread names to 15 characters plus the terminator.
    char buf[16];
    size_t i = 0;
    for (; name && name[i] && i < sizeof(buf) - 1; ++i)
        buf[i] = name[i];
    buf[i] = 0;
    pthread_setname_np(pthread_self(), buf);
}

std::string Thread::getCurrentThreadName() {
    char buf[64] = {0};
    if (pthread_getname_np(pthread_self(), buf, sizeof(buf)) != 0)
        return std::string();
    return buf;
}

} // namespace core
