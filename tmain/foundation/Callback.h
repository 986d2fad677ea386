#pragma once
#include <functional>

namespace core {

/// A stored function or member-function callback with a fixed signature,
/// invoked like a function. May be empty.
template <class R, class... Args> class Callback {
public:
    Callback() {}
    Callback(R (*fn)(Args...)) {
        if (fn)
            mFn = fn;
    }
    template <class O> Callback(O* object, R (O::*method)(Args...)) {
        mFn = [object, method](Args... args) -> R { return (object->*method)(args...); };
    }
    template <class F, class = decltype(std::declval<F&>()(std::declval<Args>()...))>
    Callback(F fn) : mFn(fn) {}

    R operator()(Args... args) const { return mFn(args...); }
    bool empty() const { return !mFn; }
    explicit operator bool() const { return static_cast<bool>(mFn); }
    void clear() { mFn = nullptr; }

private:
    std::function<R(Args...)> mFn;
};

} // namespace core
