#pragma once
/// The status-line and header parsing of Connection, over any input stream,
/// so that it can be exercised without a socket (the fuzzing harness).

#include <tmain/Export.h>
#include <tmain/http/Response.h>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace http {
namespace detail {

/// Reads one line of at most `size` bytes and fills the response's status;
/// throws HTTPException for a line that is not a status line.
TMAIN_API void readStatusLine(tarso::stream::InputStream& in, char* buffer, unsigned size,
                              Response& response);

/// Reads header lines up to the empty line into the response's headers
/// (names in lower case); throws HTTPException past `maxBytes` of headers.
TMAIN_API void readHeaders(tarso::stream::InputStream& in, char* buffer, unsigned size, unsigned maxBytes,
                           Response& response);

} // namespace detail
} // namespace http
} // namespace tarso
