#pragma once
#include <atomic>
#include <tmain/Export.h>

namespace core {

/// Base of every shared object: an intrusive, thread-safe reference count that
/// starts at 0. The object deletes itself when decRef() brings the count to 0.
class TMAIN_API IRefCount {
public:
    IRefCount() : mRefCount(0) {}
    // A copy is a new object: it starts with no references of its own.
    IRefCount(const IRefCount&) : mRefCount(0) {}
    IRefCount& operator=(const IRefCount&) { return *this; }
    virtual ~IRefCount();

    /// Increments the count and returns the new value.
    int addRef() const { return mRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }

    /// Decrements the count and returns the new value; deletes the object at 0.
    int decRef() const {
        int n = mRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (n == 0)
            delete this;
        return n;
    }

    /// Decrements the count without ever deleting: used to hand an object over
    /// to a caller that will take the reference itself (factories return
    /// objects with a count of 0).
    int releaseOwnership() const { return mRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1; }

    int getRefCount() const { return mRefCount.load(std::memory_order_acquire); }

private:
    mutable std::atomic<int> mRefCount;
};

} // namespace core
