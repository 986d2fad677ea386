#pragma once
#include <cstdarg>
#include <exception>
#include <string>
#include <tmain/Export.h>
#include <tmain/foundation/Type.h>

namespace core {

/// Formats printf-style into a buffer of the format's length plus 1024 bytes,
/// truncating beyond it: the message rule of every exception of the library.
TMAIN_API std::string formatMessage(const char* format, va_list args);
TMAIN_API std::string formatMessagef(const char* format, ...) TMAIN_PRINTF(1, 2);

/// Base of every exception the library throws: a message and an optional
/// cause. Exceptions can be cloned (with their dynamic type) and rethrown later
/// by another thread.
class TMAIN_API Exception : public std::exception {
    TMAIN_TYPE_ROOT()
public:
    Exception(const char* format, ...) TMAIN_PRINTF(2, 3);
    explicit Exception(const Exception* cause);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    ~Exception() override;

    const char* getMessage() const { return mMessage.c_str(); }
    const char* what() const noexcept override { return mMessage.c_str(); }
    const Exception* getCause() const { return mCause; }

    bool instanceOf(const Type& t) const { return getType().instanceOf(t); }

    /// A heap copy of the exception with its dynamic type; the caller owns it.
    Exception* clone() const;
    /// Throws this exception as its dynamic type.
    virtual void rethrow() const;

protected:
    Exception();
    void setMessage(const char* message);
    void setMessage(const std::string& message) { mMessage = message; }
    void setMessageV(const char* format, va_list args);
    void setCause(const Exception* cause);
    /// Makes a heap copy of the dynamic type into *out.
    virtual void _onClone(Exception** out) const;

private:
    std::string mMessage;
    Exception* mCause;
};

} // namespace core

/// Reflection, cloning and rethrow for an exception class.
#define TMAIN_EXCEPTION_BODY(Class)                                                                          \
    TMAIN_TYPE()                                                                                             \
public:                                                                                                      \
    void rethrow() const override {                                                                          \
        throw *this;                                                                                         \
    }                                                                                                        \
                                                                                                             \
protected:                                                                                                   \
    void _onClone(::core::Exception** out) const override {                                                  \
        *out = new Class(*this);                                                                             \
    }                                                                                                        \
                                                                                                             \
public:

namespace core {

/// An argument was not acceptable.
class TMAIN_API IllegalArgumentException : public Exception {
    TMAIN_EXCEPTION_BODY(IllegalArgumentException)
    IllegalArgumentException(const char* format, ...) TMAIN_PRINTF(2, 3);
    IllegalArgumentException(const char* format, const Exception* cause, ...);

protected:
    IllegalArgumentException() {}
};

/// An object was used in a state that does not allow the operation.
class TMAIN_API IllegalStateException : public Exception {
    TMAIN_EXCEPTION_BODY(IllegalStateException)
    IllegalStateException(const char* format, ...) TMAIN_PRINTF(2, 3);

protected:
    IllegalStateException() {}
};

/// The operation is not offered by this object.
class TMAIN_API UnsupportedOperationException : public Exception {
    TMAIN_EXCEPTION_BODY(UnsupportedOperationException)
    UnsupportedOperationException(const char* format, ...) TMAIN_PRINTF(2, 3);

protected:
    UnsupportedOperationException() {}
};

} // namespace core
