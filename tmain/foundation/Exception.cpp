#include <tmain/foundation/Exception.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace core {

std::string formatMessage(const char* format, va_list args) {
    if (!format)
        return std::string();
    std::vector<char> buf(strlen(format) + 1024);
    int n = vsnprintf(buf.data(), buf.size(), format, args);
    if (n < 0)
        return std::string(format);
    return std::string(buf.data());
}

std::string formatMessagef(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string s = formatMessage(format, args);
    va_end(args);
    return s;
}

const Type Exception::TYPE("core::Exception");
const Type IllegalArgumentException::TYPE("core::IllegalArgumentException", &Exception::TYPE);
const Type IllegalStateException::TYPE("core::IllegalStateException", &Exception::TYPE);
const Type UnsupportedOperationException::TYPE("core::UnsupportedOperationException", &Exception::TYPE);

Exception::Exception() : mCause(nullptr) {}

Exception::Exception(const char* format, ...) : mCause(nullptr) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

Exception::Exception(const Exception* cause) : mCause(nullptr) {
    setCause(cause);
    if (cause)
        mMessage = cause->getMessage();
}

Exception::Exception(const Exception& other)
    : std::exception(other), mMessage(other.mMessage), mCause(nullptr) {
    setCause(other.mCause);
}

Exception& Exception::operator=(const Exception& other) {
    if (this != &other) {
        mMessage = other.mMessage;
        setCause(other.mCause);
    }
    return *this;
}

Exception::~Exception() {
    delete mCause;
}

void Exception::setMessage(const char* message) {
    mMessage = message ? message : "";
}

void Exception::setMessageV(const char* format, va_list args) {
    mMessage = formatMessage(format, args);
}

void Exception::setCause(const Exception* cause) {
    Exception* copy = cause ? cause->clone() : nullptr;
    delete mCause;
    mCause = copy;
}

Exception* Exception::clone() const {
    Exception* out = nullptr;
    _onClone(&out);
    return out;
}

void Exception::_onClone(Exception** out) const {
    *out = new Exception(*this);
}

void Exception::rethrow() const {
    throw *this;
}

IllegalArgumentException::IllegalArgumentException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

IllegalArgumentException::IllegalArgumentException(const char* format, const Exception* cause, ...) {
    va_list args;
    va_start(args, cause);
    setMessageV(format, args);
    va_end(args);
    setCause(cause);
}

IllegalStateException::IllegalStateException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

UnsupportedOperationException::UnsupportedOperationException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

} // namespace core
