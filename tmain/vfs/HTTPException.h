#pragma once
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace vfs {

/// A failure of the HTTP file system, with the HTTP status that caused it
/// (0 when the failure happened before a status arrived).
class TMAIN_API HTTPException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(HTTPException)
    HTTPException(int status, const char* format, ...) TMAIN_PRINTF(3, 4);
    HTTPException(int status, const char* format, const ::core::Exception* cause, ...);

    int getStatusCode() const { return mStatus; }

private:
    int mStatus;
};

} // namespace vfs
} // namespace tarso
