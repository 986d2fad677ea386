#pragma once
// The HTTP file system's transport, shaped like the Windows internet client:
// a connection per file system, requests opened on it, headers added, the
// request sent, then the status, the headers and the body read in pieces.
// HTTPFileSystem_posix.cpp implements it over libcurl; HTTPFileSystem_win32.cpp
// over WinINet. Everything callers see (statuses, messages, ranges, decoding)
// is decided by the portable code above this seam.
#include <string>
#include <tmain/http/HeaderMap.h>
#include <tmain/platform/Platform.h>

namespace tarso {
namespace vfs {
namespace detail {

enum TransportResult {
    TR_OK = 0,
    TR_CONNECT_TIMEOUT, ///< no connection (or no response head) within the time limit
    TR_READ_TIMEOUT,    ///< the body stalled longer than the read timeout
    TR_ABORTED,         ///< the caller's abort signal fired while waiting
    TR_ERROR            ///< anything else; see HTTPRequest::getError()
};

enum TimeoutKind {
    TIMEOUT_CONNECT, ///< connecting (0 = the transport's default)
    TIMEOUT_RECEIVE, ///< each wait for data (0 = none)
    TIMEOUT_SEND     ///< each wait to send (0 = none)
};

/// Polled by a transport call while it waits on the network.
class AbortSignal {
public:
    virtual bool aborted() const = 0;

protected:
    ~AbortSignal() {}
};

struct TransportSettings {
    std::string scheme;
    std::string host;
    unsigned short port = 0;
    std::string agent;
    bool useSystemProxies = true;
    unsigned connectTimeout = 0; ///< ms, 0 = the transport's default
    unsigned readTimeout = 0;    ///< ms, 0 = none
    unsigned maxConnections = 12;
};

/// One request and its response. Single-threaded.
class HTTPRequest {
public:
    virtual ~HTTPRequest() {}
    /// Adds "Name: value\r\n" lines; false on a malformed line.
    virtual bool addHeaders(const std::string& raw) = 0;
    /// True when a request header of that name (any case) was added.
    virtual bool hasHeader(const char* name) const = 0;
    /// Sends the request with an optional body (kept by the caller until the
    /// request closes) and waits for the response head.
    virtual TransportResult send(const void* body, unsigned size, const AbortSignal& abort) = 0;
    virtual int getStatus() const = 0;
    /// Response headers, names in lower case.
    virtual const http::HeaderMap& getResponseHeaders() const = 0;
    /// The content length of the response, -1 when the response has none.
    virtual long long getContentLength() const = 0;
    /// Last-Modified in seconds since 1970, -1 when missing or unreadable.
    virtual __int64 getLastModified() const = 0;
    /// Body bytes at hand without waiting.
    virtual unsigned available() const = 0;
    /// Reads until `size` bytes arrived or the body ended (got < size then).
    /// A body that ends before its announced length is TR_ERROR.
    virtual TransportResult read(void* buffer, unsigned size, unsigned& got, const AbortSignal& abort) = 0;
    /// True once the whole body was received and handed out.
    virtual bool finished() const = 0;
    /// The platform's code and text of the last failure.
    virtual int getError() const = 0;
    virtual const char* getErrorText() const = 0;
};

/// The connection of one file system to its server. Requests may be used
/// from several threads at once (each by one thread); wakeup() and the
/// setters may be called from any thread.
class HTTPConnection {
public:
    /// Null with `error` filled when the transport cannot be set up.
    static HTTPConnection* open(const TransportSettings& settings, std::string& error);
    virtual ~HTTPConnection() {}
    /// A new request for a path on the server (with its query); null on failure.
    virtual HTTPRequest* openRequest(const char* method, const char* path, std::string& error) = 0;
    /// Sets one of the timeouts (ms) of the requests opened from now on. On
    /// failure `error` is the platform's code and `kept` the value in effect.
    virtual bool setTimeout(TimeoutKind kind, unsigned ms, int& error, unsigned& kept) = 0;
    virtual bool setUseSystemProxies(bool use) = 0;
    virtual bool setMaxConnections(unsigned n) = 0;
    /// Wakes every request waiting on the network so that it checks its abort signal.
    virtual void wakeup() = 0;
};

} // namespace detail
} // namespace vfs
} // namespace tarso
