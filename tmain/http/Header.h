#pragma once
#include <tmain/Export.h>

namespace tarso {
namespace http {

/// Names of the headers the client reads or writes itself. Header names are
/// kept in lower case throughout the client.
class TMAIN_API Header {
public:
    static constexpr const char* CONNECTION = "connection";
    static constexpr const char* CONTENT_TYPE = "content-type";
    static constexpr const char* CONTENT_LENGTH = "content-length";
    static constexpr const char* LAST_MODIFIED = "last-modified";
    static constexpr const char* LOCATION = "location";
    static constexpr const char* RANGE = "range";
    static constexpr const char* TRANSFER_ENCODING = "transfer-encoding";
    static constexpr const char* PROXY_CONNECTION = "proxy-connection";
};

/// Header values the client compares against.
class TMAIN_API Value {
public:
    static constexpr const char* CONNECTION_CLOSE = "close";
    static constexpr const char* TRANSFER_ENCODING_CHUNKED = "chunked";
};

} // namespace http
} // namespace tarso
