#include <tmain/vfs/HTTPException.h>

namespace tarso {
namespace vfs {

const ::core::Type HTTPException::TYPE("HTTPException", &::core::Exception::TYPE);

HTTPException::HTTPException(int status, const char* format, ...) : mStatus(status) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

HTTPException::HTTPException(int status, const char* format, const ::core::Exception* cause, ...)
    : mStatus(status) {
    va_list args;
    va_start(args, cause);
    setMessageV(format, args);
    va_end(args);
    setCause(cause);
}

} // namespace vfs
} // namespace tarso
