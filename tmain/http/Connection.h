#pragma once
#include <memory>
#include <string>
#include <tmain/Export.h>
#include <tmain/http/Request.h>
#include <tmain/http/Response.h>

namespace net {
class ClientSocket;
}
namespace tarso {
namespace stream {
class BufferedInputStream;
class BufferedOutputStream;
} // namespace stream

namespace http {

class Proxy;
class URL;

/// Sends requests over one kept-alive TCP connection and builds their
/// responses, following redirects and driving proxy authentication. The
/// connection is reused while the scheme and end point (the proxy when one is
/// used) stay the same and the server does not ask to close. A response's
/// body reads from the connection's stream: consume it before the next
/// request, and never read it after the connection reconnected. Used by one
/// thread at a time.
///
/// Beyond the plain protocol rules:
/// - a header block over MAX_HEADER_BYTES, a content length or a chunk size
///   beyond 32 bits throw HTTPException instead of being wrapped or buffered;
/// - responses to HEAD and 1xx, 204 and 304 responses keep their content
///   length (getContentLength) but their body reads nothing;
/// - a redirect location that is only a path ("/next") stays on the server
///   of the redirected request;
/// - a kept-alive connection that turns out readable before a request (the
///   server closed it, or a body was left unread) is replaced, and a request
///   without a body is sent once more when the server drops the connection
///   before any answer.
class TMAIN_API Connection {
public:
    enum Flags { FLAG_FOLLOW_REDIRECTS = 1, FLAG_PROXY_AUTHENTICATION = 2 };

    /// Timeouts (ms) given to connections created afterwards.
    static unsigned DEFAULT_CONNECT_TIMEOUT;
    static unsigned DEFAULT_READ_TIMEOUT;
    static unsigned DEFAULT_WRITE_TIMEOUT;
    static void setDefaultTimeout(unsigned all);
    static void setDefaultTimeout(unsigned connect, unsigned read, unsigned write);
    static void setDefaultConnectTimeout(unsigned ms) { DEFAULT_CONNECT_TIMEOUT = ms; }
    static void setDefaultReadTimeout(unsigned ms) { DEFAULT_READ_TIMEOUT = ms; }
    static void setDefaultWriteTimeout(unsigned ms) { DEFAULT_WRITE_TIMEOUT = ms; }

    /// Connects to the URL's end point at once when a URL is given.
    explicit Connection(const URL* url = nullptr, unsigned outputBufferSize = 1024);
    virtual ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Sends the request (which stays the caller's) and returns the final
    /// response, which the caller owns.
    Response* process(Request* request);

    /// Makes the connection point at the URL's end point, reconnecting
    /// unless the current connection can serve it. Null throws
    /// core::IllegalArgumentException "Connection::reset: NULL URL".
    void reset(const URL* url);
    /// True when scheme, end-point host and port equal the connection's.
    bool canHandle(const URL* url) const;
    bool willUseProxy(const URL* url) const;
    bool willUseProxy(const URL* url, Proxy& proxy) const;
    bool usesProxy() const { return mUsesProxy; }
    bool usesProxy(Proxy& proxy) const;

    void setTimeout(unsigned all) { setTimeout(all, all, all); }
    void setTimeout(unsigned connect, unsigned read, unsigned write);
    void setConnectTimeout(unsigned ms);
    void setReadTimeout(unsigned ms);
    void setWriteTimeout(unsigned ms);
    unsigned getConnectTimeout() const { return mConnectTimeout; }
    unsigned getReadTimeout() const { return mReadTimeout; }
    unsigned getWriteTimeout() const { return mWriteTimeout; }

    net::ClientSocket* getSocket() const { return mSocket.get(); }
    bool hasFlags(unsigned flags) const { return (mFlags & flags) == flags; }
    void setFlags(unsigned flags) { mFlags = flags; }
    unsigned getFlags() const { return mFlags; }
    unsigned getMaxRedirections() const { return mMaxRedirections; }
    unsigned getMaxAuthorizationIterations() const { return mMaxAuthorizationIterations; }

    /// Header bytes a response may carry before it is refused.
    static const unsigned MAX_HEADER_BYTES = 256 * 1024;

protected:
    /// Connects to the current end point anew.
    void reconnect();
    /// Disconnects without draining.
    void close();

private:
    void writeRequestLine(Request* request);
    void writeHeadersAndBody(Request* request);
    void readStatusLine(Response* response);
    void readHeaders(Response* response);
    Response* prepareResponse(Request* request);
    void resolveEndPoint(const URL* url, std::string& host, unsigned& port) const;
    /// Reads and drops what the body has at hand, in pieces of 127 bytes.
    void drainBody(Response* response);
    void write(const char* text);

    unsigned mConnectTimeout;
    unsigned mReadTimeout;
    unsigned mWriteTimeout;
    std::string mScheme;
    std::string mHost;
    unsigned mPort;
    unsigned mReadBufferSize;
    std::unique_ptr<char[]> mReadBuffer;
    unsigned mFlags;
    unsigned mMaxRedirections;
    unsigned mMaxAuthorizationIterations;
    bool mCloseAfterResponse;
    bool mUsesProxy;
    std::unique_ptr<net::ClientSocket> mSocket;
    std::unique_ptr<tarso::stream::BufferedInputStream> mInput;
    std::unique_ptr<tarso::stream::BufferedOutputStream> mOutput;
};

} // namespace http
} // namespace tarso
