#pragma once
// The platform half of URLComponents::crack: URLs that carry a scheme.
#include <tmain/vfs/URLComponents.h>

namespace tarso {
namespace vfs {
namespace detail {

/// Splits `url`, whose valid scheme ends at `colon`, into `out` (already
/// reset); false when the platform's splitter refuses it.
bool crackSchemeURL(const char* url, const char* colon, URLComponents& out);

} // namespace detail
} // namespace vfs
} // namespace tarso
