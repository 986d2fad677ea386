#pragma once
#include <mutex>
#include <tmain/Export.h>

namespace core {

/// Recursive mutex.
class TMAIN_API CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void enter() { mMutex.lock(); }
    void leave() { mMutex.unlock(); }
    /// True when the lock was taken.
    bool tryEnter() { return mMutex.try_lock(); }

private:
    std::recursive_mutex mMutex;
};

/// Scope guard: enters a CriticalSection on construction, leaves on destruction.
class Lock {
public:
    explicit Lock(CriticalSection& cs) : mCS(cs) { mCS.enter(); }
    explicit Lock(CriticalSection* cs) : mCS(*cs) { mCS.enter(); }
    ~Lock() { mCS.leave(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    CriticalSection& mCS;
};

/// Scope guard that leaves a held CriticalSection and re-enters it at the end
/// of the scope: used around calls that may block (network, disk, waits).
class Unlock {
public:
    explicit Unlock(CriticalSection& cs) : mCS(cs) { mCS.leave(); }
    ~Unlock() { mCS.enter(); }
    Unlock(const Unlock&) = delete;
    Unlock& operator=(const Unlock&) = delete;

private:
    CriticalSection& mCS;
};

} // namespace core
