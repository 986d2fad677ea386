#pragma once
#include <cstddef>
#include <tmain/foundation/IRefCount.h>
#include <utility>

namespace core {

/// Intrusive pointer over IRefCount. Wrapping a raw pointer takes a reference;
/// dropping the pointer releases it. A null pointer is allowed.
template <class T> class SmartPtr {
public:
    SmartPtr() : mPtr(nullptr) {}
    SmartPtr(std::nullptr_t) : mPtr(nullptr) {}
    SmartPtr(T* p) : mPtr(p) { acquire(); }
    SmartPtr(const SmartPtr& o) : mPtr(o.mPtr) { acquire(); }
    SmartPtr(SmartPtr&& o) noexcept : mPtr(o.mPtr) { o.mPtr = nullptr; }
    template <class U> SmartPtr(const SmartPtr<U>& o) : mPtr(o.get()) { acquire(); }
    ~SmartPtr() { release(); }

    SmartPtr& operator=(const SmartPtr& o) { return assign(o.mPtr); }
    SmartPtr& operator=(T* p) { return assign(p); }
    template <class U> SmartPtr& operator=(const SmartPtr<U>& o) { return assign(o.get()); }
    SmartPtr& operator=(SmartPtr&& o) noexcept {
        if (this != &o) {
            release();
            mPtr = o.mPtr;
            o.mPtr = nullptr;
        }
        return *this;
    }

    T* get() const { return mPtr; }
    T* operator->() const { return mPtr; }
    T& operator*() const { return *mPtr; }
    explicit operator bool() const { return mPtr != nullptr; }
    bool operator!() const { return mPtr == nullptr; }
    operator T*() const { return mPtr; }

    void reset() { assign(nullptr); }

    /// Gives the object up without deleting it: the count drops by one and the
    /// raw pointer is returned for a caller that will wrap it again (the way
    /// factories hand out new objects).
    T* detach() {
        T* p = mPtr;
        mPtr = nullptr;
        if (p)
            p->releaseOwnership();
        return p;
    }

private:
    SmartPtr& assign(T* p) {
        if (p != mPtr) {
            T* old = mPtr;
            mPtr = p;
            acquire();
            if (old)
                old->decRef();
        }
        return *this;
    }
    void acquire() {
        if (mPtr)
            mPtr->addRef();
    }
    void release() {
        if (mPtr) {
            T* p = mPtr;
            mPtr = nullptr;
            p->decRef();
        }
    }
    T* mPtr;
};

template <class T, class U> bool operator==(const SmartPtr<T>& a, const SmartPtr<U>& b) {
    return a.get() == b.get();
}
template <class T, class U> bool operator!=(const SmartPtr<T>& a, const SmartPtr<U>& b) {
    return a.get() != b.get();
}

} // namespace core
