#pragma once
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace vfs {

/// A path does not exist. The message is the path.
class TMAIN_API FileNotFoundException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(FileNotFoundException)
    explicit FileNotFoundException(const char* message);
    FileNotFoundException(const char* message, const ::core::Exception* cause);
};

} // namespace vfs
} // namespace tarso
