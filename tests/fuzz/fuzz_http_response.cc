// libFuzzer harness for the HTTP client's response parsing: the status line,
// the header block and a chunked body, read from a memory stream through the
// same buffered stream the connection uses. Any input must end in a parsed
// response or the library's own exception, never a crash, a hang or an
// unbounded allocation; a parsed chunked body never yields more bytes than
// the input holds.
#include "fuzz_support.h"
#include <tmain/foundation/Exception.h>
#include <tmain/http/ChunkedInputStream.h>
#include <tmain/http/Response.h>
#include <tmain/http/detail/ResponseParser.h>
#include <tmain/stream/BufferedInputStream.h>
#include <tmain/stream/ByteInputStream.h>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    // The first byte picks the buffer sizes: small ones cut lines and chunks
    // at every refill boundary.
    const unsigned bufferSize = fuzz::bufferSize(data[0] & 3);
    const unsigned lineSize = 16u << ((data[0] >> 2) & 7);
    tarso::stream::ByteInputStream bytes(data + 1, (unsigned)size - 1, false);
    bytes.open(tarso::stream::Stream::OM_READ);
    tarso::stream::BufferedInputStream in(&bytes, bufferSize, false);
    std::string line(lineSize, '\0');
    tarso::http::Response response;
    try {
        tarso::http::detail::readStatusLine(in, &line[0], lineSize, response);
        tarso::http::detail::readHeaders(in, &line[0], lineSize, 64 * 1024, response);
        tarso::http::ChunkedInputStream body(&in, false);
        char buffer[300];
        unsigned total = 0;
        for (unsigned got; (got = body.read(buffer, 1, sizeof(buffer))) > 0;) {
            total += got;
            if (total > size)
                fuzz::fail("fuzz_http_response", "chunked body longer than its input");
        }
    } catch (const core::Exception&) {
    }
    return 0;
}
