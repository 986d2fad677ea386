#pragma once
#include <mutex>
#include <tmain/foundation/SmartPtr.h>

namespace core {

TMAIN_API void logSingletonStillReferenced();

/// Lazily created process-wide instance of T held by a SmartPtr. T makes its
/// constructor and destructor private and befriends Singleton<T>.
/// The instance lives in the module that instantiates these functions: a
/// class exported from a shared library reaches it through out-of-line
/// accessors of its own, so that every module sees the same instance.
template <class T> class Singleton {
public:
    /// The instance, created on first use.
    static T* getSingleton() {
        std::lock_guard<std::mutex> g(mutex());
        SmartPtr<T>& p = holder();
        if (!p)
            p = new T();
        return p.get();
    }
    /// True when the instance exists.
    static bool exists() {
        std::lock_guard<std::mutex> g(mutex());
        return holder().get() != nullptr;
    }
    /// Releases the instance; logs when others still hold references to it.
    static void deleteSingleton() {
        SmartPtr<T> p;
        {
            std::lock_guard<std::mutex> g(mutex());
            p = holder();
            holder().reset();
        }
        if (p && p->getRefCount() > 1)
            logSingletonStillReferenced();
    }

private:
    static SmartPtr<T>& holder() {
        static SmartPtr<T> instance;
        return instance;
    }
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
};

} // namespace core
