#pragma once
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace stream {

/// Failure of a stream operation.
class TMAIN_API IOException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(IOException)
    IOException(const char* format, ...) TMAIN_PRINTF(2, 3);
    IOException(const char* format, const ::core::Exception* cause);
    /// Throws a copy of this exception as an IOException.
    virtual void throwSame() const { throw IOException(*this); }

protected:
    IOException() {}
};

/// A transfer was aborted by another party.
class TMAIN_API StreamAbortedException : public IOException {
    TMAIN_EXCEPTION_BODY(StreamAbortedException)
    StreamAbortedException(const char* format, ...) TMAIN_PRINTF(2, 3);
    StreamAbortedException(const char* format, const ::core::Exception* cause);
};

/// A time limit ran out. Message "timeout" unless a format is given.
class TMAIN_API TimeoutException : public IOException {
    TMAIN_EXCEPTION_BODY(TimeoutException)
    TimeoutException(const char* format = nullptr, ...);

protected:
    void init(const char* defaultMessage, const char* format, va_list args);
};

/// Message "connect-timeout" unless a format is given.
class TMAIN_API ConnectTimeoutException : public TimeoutException {
    TMAIN_EXCEPTION_BODY(ConnectTimeoutException)
    ConnectTimeoutException(const char* format = nullptr, ...);
};

/// Message "read-timeout" unless a format is given.
class TMAIN_API ReadTimeoutException : public TimeoutException {
    TMAIN_EXCEPTION_BODY(ReadTimeoutException)
    ReadTimeoutException(const char* format = nullptr, ...);
};

/// Message "write-timeout" unless a format is given.
class TMAIN_API WriteTimeoutException : public TimeoutException {
    TMAIN_EXCEPTION_BODY(WriteTimeoutException)
    WriteTimeoutException(const char* format = nullptr, ...);
};

} // namespace stream
} // namespace tarso
