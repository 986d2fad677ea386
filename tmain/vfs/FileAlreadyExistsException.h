#pragma once
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace vfs {

/// A path exists where it must not. The message is the path.
class TMAIN_API FileAlreadyExistsException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(FileAlreadyExistsException)
    explicit FileAlreadyExistsException(const char* message);
    FileAlreadyExistsException(const char* message, const ::core::Exception* cause);
};

} // namespace vfs
} // namespace tarso
