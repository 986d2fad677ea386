#include <tmain/stream/IOException.h>

namespace tarso {
namespace stream {

const ::core::Type IOException::TYPE("tarso::stream::IOException", &::core::Exception::TYPE);
const ::core::Type StreamAbortedException::TYPE("tarso::stream::StreamAbortedException", &IOException::TYPE);
const ::core::Type TimeoutException::TYPE("tarso::stream::TimeoutException", &IOException::TYPE);
const ::core::Type ConnectTimeoutException::TYPE("tarso::stream::ConnectTimeoutException",
                                                 &TimeoutException::TYPE);
const ::core::Type ReadTimeoutException::TYPE("tarso::stream::ReadTimeoutException", &TimeoutException::TYPE);
const ::core::Type WriteTimeoutException::TYPE("tarso::stream::WriteTimeoutException",
                                               &TimeoutException::TYPE);

IOException::IOException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

IOException::IOException(const char* format, const ::core::Exception* cause) {
    setMessage(format);
    setCause(cause);
}

StreamAbortedException::StreamAbortedException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

StreamAbortedException::StreamAbortedException(const char* format, const ::core::Exception* cause) {
    setMessage(format);
    setCause(cause);
}

void TimeoutException::init(const char* defaultMessage, const char* format, va_list args) {
    if (format)
        setMessageV(format, args);
    else
        setMessage(defaultMessage);
}

#define TMAIN_TIMEOUT_CTOR(Class, Base, text)                                                                \
    Class::Class(const char* format, ...) {                                                                  \
        va_list args;                                                                                        \
        va_start(args, format);                                                                              \
        init(text, format, args);                                                                            \
        va_end(args);                                                                                        \
    }

TimeoutException::TimeoutException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    init("timeout", format, args);
    va_end(args);
}
TMAIN_TIMEOUT_CTOR(ConnectTimeoutException, TimeoutException, "connect-timeout")
TMAIN_TIMEOUT_CTOR(ReadTimeoutException, TimeoutException, "read-timeout")
TMAIN_TIMEOUT_CTOR(WriteTimeoutException, TimeoutException, "write-timeout")

} // namespace stream
} // namespace tarso
