#pragma once
#include <string>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/SmartPtr.h>

namespace core {

/// Error record of a failed operation: a code (0 when none was set) and a message.
struct FutureError {
    int code;
    std::string message;
};

/// Shared state behind a Future: a lock, a completed flag, the result, an
/// optional error record, an event for one waiter and one for many.
template <class T> class FutureState : public IRefCount {
public:
    FutureState() : mCompleted(false), mResult(), mHasError(false), mEvent(false, false), mEventAll(false) {}

    CriticalSection mCS;
    bool mCompleted;
    T mResult;
    bool mHasError;
    FutureError mError;
    Event mEvent;
    Event_mthread mEventAll;
};

struct FutureVoid {};

/// Base of Future<T> and Future<void>: a copyable handle on the shared state.
template <class T> class FutureBase {
public:
    typedef FutureState<T> State;

    FutureBase() : mState(new State()) {}

    /// Waits at most timeoutMs milliseconds for completion; true when completed.
    bool wait(unsigned timeoutMs = INFINITE_WAIT) const {
        return mState->mEventAll.wait(timeoutMs) == Event::WAIT_SIGNALED;
    }
    bool isCompleted() const {
        Lock lock(mState->mCS);
        return mState->mCompleted;
    }
    bool hasError() const {
        Lock lock(mState->mCS);
        return mState->mHasError;
    }
    int getErrorCode() const {
        Lock lock(mState->mCS);
        return mState->mHasError ? mState->mError.code : 0;
    }
    std::string getErrorMessage() const {
        Lock lock(mState->mCS);
        return mState->mHasError ? mState->mError.message : std::string();
    }
    /// The auto-reset event for a single waiter.
    Event& getEvent() const { return mState->mEvent; }

    /// Completes with an error record; false when the future was already
    /// completed (the first completion wins).
    bool fail(int code, const char* message) {
        {
            Lock lock(mState->mCS);
            if (mState->mCompleted)
                return false;
            mState->mHasError = true;
            mState->mError.code = code;
            mState->mError.message = message ? message : "";
            mState->mCompleted = true;
            signal();
        }
        return true;
    }
    /// Completes as aborted: an error record with the given code and message.
    bool abort(int code, const char* message) { return fail(code, message); }

    bool operator==(const FutureBase& o) const { return mState == o.mState; }

protected:
    void signal() {
        mState->mEvent.set();
        mState->mEventAll.set(true);
    }
    SmartPtr<State> mState;
};

/// The result of an operation run on another thread.
template <class T> class Future : public FutureBase<T> {
public:
    /// The result value (a default value until completed or on error).
    T getResult() const {
        Lock lock(this->mState->mCS);
        return this->mState->mResult;
    }
    /// Completes with a result; false when already completed (the value is
    /// then dropped).
    bool complete(const T& value) {
        Lock lock(this->mState->mCS);
        if (this->mState->mCompleted)
            return false;
        this->mState->mResult = value;
        this->mState->mCompleted = true;
        this->signal();
        return true;
    }
};

template <> class Future<void> : public FutureBase<FutureVoid> {
public:
    bool complete() {
        Lock lock(mState->mCS);
        if (mState->mCompleted)
            return false;
        mState->mCompleted = true;
        signal();
        return true;
    }
};

} // namespace core
