#include <tmain/http/Connection.h>

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <strings.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/http/AuthenticationProcess.h>
#include <tmain/http/Body.h>
#include <tmain/http/ChunkedInputStream.h>
#include <tmain/http/HTTPException.h>
#include <tmain/http/Header.h>
#include <tmain/http/ProxyResolver.h>
#include <tmain/http/ResponseInputStream.h>
#include <tmain/http/detail/ResponseParser.h>
#include <tmain/net/ClientSocket.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/net/SocketInputStream.h>
#include <tmain/net/SocketOutputStream.h>
#include <tmain/stream/BufferedInputStream.h>
#include <tmain/stream/BufferedOutputStream.h>
#include <tmain/stream/IOException.h>

using tarso::stream::IOException;

namespace tarso {
namespace http {

unsigned Connection::DEFAULT_CONNECT_TIMEOUT = 4000;
unsigned Connection::DEFAULT_READ_TIMEOUT = 2000;
unsigned Connection::DEFAULT_WRITE_TIMEOUT = 2000;

namespace {

const unsigned READ_BUFFER_SIZE = 4096;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string trimmed(const char* begin, const char* end) {
    while (begin < end && isBlank(*begin))
        ++begin;
    while (end > begin && isBlank(end[-1]))
        --end;
    return std::string(begin, end);
}

const char* methodWord(int method) {
    switch (method) {
    case Request::HEAD:
        return "HEAD ";
    case Request::GET:
        return "GET ";
    case Request::PUT:
        return "PUT ";
    case Request::POST:
        return "POST ";
    case Request::CONNECT:
        return "CONNECT ";
    default:
        throw ::core::IllegalArgumentException("Invalid request method (%d)", method);
    }
}

/// Responses that never carry a body whatever their headers say: to HEAD,
/// 1xx, 204 and 304. Their content length still describes the resource.
bool bodiless(int method, unsigned status) {
    return method == Request::HEAD || (status >= 100 && status < 200) || status == 204 || status == 304;
}

/// Ends an authentication process however the exchange ends.
struct AuthenticationGuard {
    AuthenticationProcess* process = nullptr;
    ~AuthenticationGuard() { end(); }
    void end() {
        if (process)
            ProxyResolver::endAuthentication(process);
        process = nullptr;
    }
};

} // namespace

namespace detail {

void readStatusLine(tarso::stream::InputStream& in, char* line, unsigned size, Response& response) {
    in.readLine(line, (int)size, '\n');
    const char* p = line;
    while (*p && isBlank(*p))
        ++p;
    const char* wordEnd = p;
    while (*wordEnd && !isBlank(*wordEnd))
        ++wordEnd;
    if (wordEnd == p)
        throw HTTPException("Invalid server response: %s", trimmed(line, line + strlen(line)).c_str());
    std::string version(p, wordEnd);
    if (version.find("HTTP") == std::string::npos && version.find("http") == std::string::npos)
        throw HTTPException("Invalid status line (%s)", trimmed(line, line + strlen(line)).c_str());
    p = wordEnd;
    while (*p && isBlank(*p))
        ++p;
    const char* codeEnd = p;
    while (*codeEnd && !isBlank(*codeEnd))
        ++codeEnd;
    std::string codeWord(p, codeEnd);
    if (!isdigit((unsigned char)codeWord.c_str()[0]))
        throw HTTPException("Invalid status code (%s)", codeWord.c_str());
    unsigned long code = strtoul(codeWord.c_str(), nullptr, 10);
    if (code > UINT_MAX)
        throw HTTPException("Invalid status code (%s)", codeWord.c_str());
    response.setStatus((unsigned)code, trimmed(codeEnd, codeEnd + strlen(codeEnd)).c_str());
}

void readHeaders(tarso::stream::InputStream& in, char* line, unsigned size, unsigned maxBytes,
                 Response& response) {
    unsigned long total = 0;
    for (;;) {
        unsigned n = in.readLine(line, (int)size, '\n');
        // Lines longer than the buffer arrive in pieces; their sum is what
        // counts against the limit.
        total += n + 1;
        if (total > maxBytes)
            throw HTTPException("Response headers exceed %u bytes", maxBytes);
        if (n == 0) {
            // A bare "\n" ends the block as "\r\n" does; an ended stream has
            // no more headers to give.
            if (in.eof())
                throw HTTPException("Invalid server response: headers end without an empty line");
            break;
        }
        if (line[0] == '\r' && line[1] == 0)
            break;
        char* colon = strchr(line, ':');
        if (!colon)
            continue;
        const char* nameStart = line;
        while (nameStart < colon && isBlank(*nameStart))
            ++nameStart;
        const char* nameEnd = nameStart;
        while (nameEnd < colon && !isBlank(*nameEnd))
            ++nameEnd;
        std::string name(nameStart, nameEnd);
        std::string value = trimmed(colon + 1, line + n);
        if (name.empty() || value.empty()) {
            logging::Logger::mROOT_LOGGER.debug("Empty header: %s:%s", name.c_str(), value.c_str());
            continue;
        }
        for (char& c : name)
            c = (char)tolower((unsigned char)c);
        response.getHeaders().add(name.c_str(), value.c_str());
    }
}

} // namespace detail

void Connection::setDefaultTimeout(unsigned all) {
    setDefaultTimeout(all, all, all);
}

void Connection::setDefaultTimeout(unsigned connect, unsigned read, unsigned write) {
    DEFAULT_CONNECT_TIMEOUT = connect;
    DEFAULT_READ_TIMEOUT = read;
    DEFAULT_WRITE_TIMEOUT = write;
}

Connection::Connection(const URL* url, unsigned outputBufferSize)
    : mConnectTimeout(DEFAULT_CONNECT_TIMEOUT), mReadTimeout(DEFAULT_READ_TIMEOUT),
      mWriteTimeout(DEFAULT_WRITE_TIMEOUT), mPort(80), mReadBufferSize(READ_BUFFER_SIZE),
      mReadBuffer(new char[READ_BUFFER_SIZE]), mFlags(FLAG_FOLLOW_REDIRECTS | FLAG_PROXY_AUTHENTICATION),
      mMaxRedirections(2), mMaxAuthorizationIterations(2), mCloseAfterResponse(false), mUsesProxy(false),
      mOutput(new tarso::stream::BufferedOutputStream(outputBufferSize, false)) {
    if (url)
        reset(url);
}

Connection::~Connection() {
    // Pending request bytes are dropped, never sent to a closing socket.
    mOutput->release(false);
    mInput.reset();
}

void Connection::setTimeout(unsigned connect, unsigned read, unsigned write) {
    mConnectTimeout = connect;
    mReadTimeout = read;
    mWriteTimeout = write;
    if (mSocket)
        mSocket->setTimeout(connect, read, write);
}

void Connection::setConnectTimeout(unsigned ms) {
    setTimeout(ms, mReadTimeout, mWriteTimeout);
}

void Connection::setReadTimeout(unsigned ms) {
    setTimeout(mConnectTimeout, ms, mWriteTimeout);
}

void Connection::setWriteTimeout(unsigned ms) {
    setTimeout(mConnectTimeout, mReadTimeout, ms);
}

void Connection::resolveEndPoint(const URL* url, std::string& host, unsigned& port) const {
    Proxy proxy;
    if (ProxyResolver::resolve(url, proxy)) {
        host = proxy.getHost();
        port = proxy.getPort();
    } else {
        host = url->getHost();
        port = url->getPort();
    }
}

bool Connection::canHandle(const URL* url) const {
    std::string host;
    unsigned port = 0;
    resolveEndPoint(url, host, port);
    return mScheme == url->getScheme() && mHost == host && mPort == port;
}

bool Connection::willUseProxy(const URL* url) const {
    Proxy proxy;
    return willUseProxy(url, proxy);
}

bool Connection::willUseProxy(const URL* url, Proxy& proxy) const {
    return ProxyResolver::resolve(url, proxy);
}

bool Connection::usesProxy(Proxy& proxy) const {
    if (mUsesProxy)
        proxy.set(mHost.c_str(), mPort);
    return mUsesProxy;
}

void Connection::reset(const URL* url) {
    if (!url)
        throw ::core::IllegalArgumentException("Connection::reset: NULL URL");
    if (canHandle(url) && !mCloseAfterResponse && mSocket && mSocket->isConnected()) {
        // A kept-alive connection has nothing to say between responses: bytes
        // or an end of stream waiting now mean the server closed it or a body
        // was left unread. Either way the stream is unusable.
        if (mInput && mInput->available() == 0)
            return;
    }
    mScheme = url->getScheme();
    Proxy proxy;
    mUsesProxy = ProxyResolver::resolve(url, proxy);
    if (mUsesProxy) {
        mHost = proxy.getHost();
        mPort = proxy.getPort();
    } else {
        mHost = url->getHost();
        mPort = url->getPort();
    }
    reconnect();
}

void Connection::reconnect() {
    // Bodies still pointing at the old stream must never read again: the
    // stream goes away with the old connection.
    mInput.reset();
    mCloseAfterResponse = false;
    if (mSocket) {
        mSocket->disconnect(false);
        mSocket->connect(mHost.c_str(), (int)mPort, false);
    } else {
        mSocket.reset(new net::ClientSocket(nullptr, 0, mConnectTimeout, mReadTimeout, mWriteTimeout, true));
        mSocket->setTCPNoDelay(true);
        mSocket->connect(mHost.c_str(), (int)mPort, false);
        mSocket->setNonBlocking(false);
    }
    net::SocketInputStream* in = mSocket->getInputStream();
    mInput.reset(new tarso::stream::BufferedInputStream(in, READ_BUFFER_SIZE, false));
    if (!in->isOpen())
        in->open(tarso::stream::Stream::OM_READ | tarso::stream::Stream::OM_BINARY);
}

void Connection::close() {
    mInput.reset();
    if (mSocket)
        mSocket->disconnect(false);
}

void Connection::write(const char* text) {
    unsigned n = (unsigned)strlen(text);
    if (mOutput->write(text, 1, n) != n)
        throw IOException("Connection: short write");
}

void Connection::writeRequestLine(Request* request) {
    const char* word = methodWord(request->getMethod());
    try {
        write(word);
    } catch (const ::core::Exception&) {
        reconnect();
        mOutput->release(false);
        mOutput->setTarget(mSocket->getOutputStream(), false);
        try {
            write(word);
        } catch (const ::core::Exception& e) {
            throw IOException("Unable to initialize HTTP connection", &e);
        }
    }
    const URL& url = request->getURL();
    auto step = [&](const char* text, const char* failure) {
        try {
            write(text);
        } catch (const ::core::Exception& e) {
            throw IOException(failure, &e);
        }
    };
    if (!mUsesProxy) {
        step(url.getPath(), "Unable to write request line path");
    } else if (request->getMethod() == Request::CONNECT) {
        step(url.getHost(), "Unable to write request line path (CONNECT host)");
        char port[16];
        snprintf(port, sizeof(port), ":%d", (int)url.getPort());
        step(port, "Unable to write request line path (CONNECT port)");
    } else {
        step(url.toString(), "Unable to write request line path");
    }
    // Through a proxy the URL text already ends with the query, which is
    // then written twice: servers have long been seeing it that way.
    if (url.getQuerySize() > 0) {
        step("?", "Unable to write request line path");
        step(url.getQuery(), "Unable to write request line path");
    }
    step(" HTTP/1.1", "Unable to write request line protocol");
    step("\r\n", "Unable to write request line CRLF");
}

void Connection::writeHeadersAndBody(Request* request) {
    const HeaderMap& headers = request->getHeaders();
    for (auto it = headers.begin(); it != headers.end(); ++it) {
        if (it->first == Header::CONTENT_LENGTH)
            continue;
        for (const std::string& value : *it->second) {
            write(it->first.c_str());
            write(": ");
            write(value.c_str());
            write("\r\n");
        }
    }
    const URL& url = request->getURL();
    write("host: ");
    write(url.getHost());
    if (url.getPort() != 80) {
        char port[16];
        snprintf(port, sizeof(port), ":%u", url.getPort());
        write(port);
    }
    write("\r\n");
    Body* body = request->getBody();
    if (body) {
        unsigned size = body->getSize();
        if (!body->isSizeOK())
            throw ::core::UnsupportedOperationException("chunked transfers not yet supported");
        char line[48];
        snprintf(line, sizeof(line), "content-length: %u\r\n\r\n", size);
        write(line);
        tarso::stream::InputStream* data = body->getData();
        char buffer[16384];
        unsigned left = size;
        while (left > 0 && data) {
            unsigned got = data->read(buffer, 1, left < sizeof(buffer) ? left : (unsigned)sizeof(buffer));
            if (got == 0)
                break;
            if (mOutput->write(buffer, 1, got) != got)
                throw IOException("Connection: short write");
            left -= got;
        }
        if (left > 0)
            throw IOException("Request body ended %u bytes before its content-length (%u)", left, size);
    } else {
        if (request->getMethod() == Request::POST)
            write("content-length: 0\r\n");
        write("\r\n");
    }
    mOutput->flush();
}

void Connection::readStatusLine(Response* response) {
    detail::readStatusLine(*mInput, mReadBuffer.get(), mReadBufferSize, *response);
}

void Connection::readHeaders(Response* response) {
    detail::readHeaders(*mInput, mReadBuffer.get(), mReadBufferSize, MAX_HEADER_BYTES, *response);
}

void Connection::drainBody(Response* response) {
    Body* body = response->getBody();
    tarso::stream::InputStream* data = body ? body->getData() : nullptr;
    if (!data)
        return;
    char piece[127];
    while (data->available() != 0)
        if (data->read(piece, 1, sizeof(piece)) == 0)
            break;
}

Response* Connection::process(Request* request) {
    if (!request)
        throw ::core::IllegalArgumentException("Connection::process: NULL request");
    return prepareResponse(request);
}

Response* Connection::prepareResponse(Request* request) {
    std::unique_ptr<Request> intermediate;
    Request* current = request;
    AuthenticationGuard auth;
    unsigned redirections = 0;
    unsigned authorizations = 0;
    for (;;) {
        reset(&current->getURL());
        std::unique_ptr<Response> response(new Response());
        // A kept-alive connection the server dropped meanwhile fails at the
        // first read; a request without a body is then sent once more on a
        // fresh connection.
        for (int attempt = 0;; ++attempt) {
            try {
                mOutput->release(false);
                mOutput->setTarget(mSocket->getOutputStream(), false);
                writeRequestLine(current);
                writeHeadersAndBody(current);
                readStatusLine(response.get());
                break;
            } catch (const net::SocketClosedException&) {
                if (attempt > 0 || current->hasBody())
                    throw;
                reconnect();
            }
        }
        readHeaders(response.get());

        const HeaderMap& headers = response->getHeaders();
        if (const char* c = headers.get(Header::CONNECTION))
            mCloseAfterResponse = strcasecmp(c, Value::CONNECTION_CLOSE) == 0;
        else if (const char* pc = headers.get(Header::PROXY_CONNECTION))
            mCloseAfterResponse = strcasecmp(pc, Value::CONNECTION_CLOSE) == 0;
        else
            mCloseAfterResponse = false;

        bool chunked = false;
        if (const char* te = headers.get(Header::TRANSFER_ENCODING)) {
            const size_t n = strlen(Value::TRANSFER_ENCODING_CHUNKED);
            if (strncasecmp(te, Value::TRANSFER_ENCODING_CHUNKED, n) != 0)
                throw HTTPException("Unsupported transfer-encoding: %s", te);
            if (strlen(te) > n)
                logging::Logger::mROOT_LOGGER.info("Chunked transfer extensions ignored: %s", te);
            chunked = true;
        }
        unsigned contentLength = 0;
        if (const char* cl = headers.get(Header::CONTENT_LENGTH)) {
            char* end = nullptr;
            unsigned long long v = isdigit((unsigned char)*cl) ? strtoull(cl, &end, 10) : ULLONG_MAX;
            if (v > UINT_MAX)
                throw HTTPException("Invalid content-length (%s)", cl);
            contentLength = (unsigned)v;
        }
        const int method = current->getMethod();
        const unsigned status = response->getStatusCode();
        if (contentLength != 0 || chunked) {
            tarso::stream::InputStream* data;
            if (bodiless(method, status))
                data = new ResponseInputStream(mInput.get(), 0, false);
            else if (chunked)
                data = new ChunkedInputStream(mInput.get(), false);
            else
                data = new ResponseInputStream(mInput.get(), contentLength, false);
            response->setBody(new Body(data, contentLength));
        }

        if (status >= 300 && status < 400 && hasFlags(FLAG_FOLLOW_REDIRECTS)) {
            if (redirections >= mMaxRedirections) {
                logging::Logger::mROOT_LOGGER.warn(
                    "Too many redirections (%d). Using last response as result", (int)redirections);
                return response.release();
            }
            const char* location = headers.get(Header::LOCATION);
            if (!location) {
                logging::Logger::mROOT_LOGGER.info("No location header found in redirected response (%d)",
                                                   (int)status);
                return response.release();
            }
            // A location that is only a path stays on the current server.
            std::string target = location;
            if (target[0] == '/' && (target.size() < 2 || target[1] != '/')) {
                const URL& from = current->getURL();
                char port[16] = "";
                if (from.getPort() != 80)
                    snprintf(port, sizeof(port), ":%u", from.getPort());
                target = std::string(from.getScheme()) + "://" + from.getHost() + port + target;
            }
            URL copy(target.c_str());
            copy.appendQuery(request->getURL().getQuery());
            bool reconnected = false;
            if (contentLength != 0 && canHandle(&copy)) {
                reconnect();
                reconnected = true;
            }
            std::unique_ptr<Request> next(new Request(target.c_str(), (Request::Method)method));
            next->getHeaders().add(request->getHeaders());
            if (!mCloseAfterResponse && !reconnected)
                drainBody(response.get());
            response.reset();
            intermediate = std::move(next);
            current = intermediate.get();
            ++redirections;
            continue;
        }

        if (status == 407 && hasFlags(FLAG_PROXY_AUTHENTICATION)) {
            if (authorizations >= mMaxAuthorizationIterations) {
                logging::Logger::mROOT_LOGGER.warn(
                    "Too many authorization iterations (%d). Using last response as result",
                    (int)authorizations);
                auth.end();
                return response.release();
            }
            if (!auth.process) {
                auth.process = ProxyResolver::initAuthentication(current, response.get(), this);
                if (!auth.process) {
                    logging::Logger::mROOT_LOGGER.warn(
                        "Could not initialize proxy authentication. Using last response as result");
                    ++authorizations;
                    return response.release();
                }
            } else {
                auth.process->process(current, response.get(), this);
                if (auth.process->getStatus() == AuthenticationProcess::STATUS_FINISHED) {
                    if (!auth.process->isSuccess()) {
                        logging::Logger::mROOT_LOGGER.warn(
                            "Proxy authentication failed. Using last response as result");
                        ++authorizations;
                        return response.release();
                    }
                    auth.end();
                }
            }
            if (!mCloseAfterResponse)
                drainBody(response.get());
            response.reset();
            ++authorizations;
            continue;
        }
        return response.release();
    }
}

} // namespace http
} // namespace tarso
