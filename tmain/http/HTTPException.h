#pragma once
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace http {

/// A protocol failure of the HTTP client (malformed status line, unsupported
/// transfer coding, ...).
class TMAIN_API HTTPException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(HTTPException)
    HTTPException(const char* format, ...) TMAIN_PRINTF(2, 3);
    /// printf-style message with the exception that caused this one.
    HTTPException(const char* format, const ::core::Exception* cause, ...);
    /// Throws a copy of this exception as an HTTPException.
    virtual void throwSame() const { throw HTTPException(*this); }

protected:
    HTTPException() {}
};

} // namespace http
} // namespace tarso
