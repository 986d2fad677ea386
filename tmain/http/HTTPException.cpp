#include <tmain/http/HTTPException.h>

namespace tarso {
namespace http {

const ::core::Type HTTPException::TYPE("tarso::http::HTTPException", &::core::Exception::TYPE);

HTTPException::HTTPException(const char* format, ...) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

HTTPException::HTTPException(const char* format, const ::core::Exception* cause, ...) {
    va_list args;
    va_start(args, cause);
    setMessageV(format, args);
    va_end(args);
    setCause(cause);
}

} // namespace http
} // namespace tarso
