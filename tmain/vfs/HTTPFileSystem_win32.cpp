// The HTTP file system's transport over WinINet, used synchronously: one
// internet handle and one connection handle per file system, a request handle
// per request. WinINet keeps connections alive between requests whose bodies
// were read to the end. At most the connection limit of requests of one file
// system hold a connection at a time; a request beyond it waits for one.
// A request blocked in WinINet is cancelled by closing its handle from the
// thread that aborts it.
#include <tmain/vfs/detail/HTTPTransport.h>

#include <windows.h>
#include <wininet.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <tmain/foundation/Logger.h>
#include <tmain/platform/Platform.h>
#include <vector>

namespace tarso {
namespace vfs {
namespace detail {

namespace {

typedef std::chrono::steady_clock Clock;

/// Reload, pragma no-cache, hyperlink and 4, as every request of the file
/// system has always been opened with.
const DWORD REQUEST_FLAGS = 0x80000504;
/// How long a request waits for a free connection when no connect timeout is set.
const unsigned DEFAULT_SLOT_WAIT_MS = 60000;

std::string lower(const char* s, size_t n) {
    std::string out(s, n);
    for (char& c : out)
        c = (char)tolower((unsigned char)c);
    return out;
}

/// The text of a system or WinINet error code.
std::string errorText(DWORD code) {
    char buffer[512] = "";
    DWORD n = 0;
    if (code >= INTERNET_ERROR_BASE && code <= INTERNET_ERROR_LAST)
        n = FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS,
                           GetModuleHandleA("wininet.dll"), code, 0, buffer, sizeof(buffer), NULL);
    if (n == 0)
        n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, NULL, code, 0, buffer,
                           sizeof(buffer), NULL);
    std::string text(buffer, n);
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return text.empty() ? "error " + std::to_string(code) : text;
}

/// Whether a failed call ended because its time limit ran out. WinINet says
/// so with ERROR_INTERNET_TIMEOUT; some implementations pass the socket's
/// WSAETIMEDOUT on, or report a head that never came as an aborted
/// connection, which then failed only after the whole limit had passed.
bool timedOut(DWORD error, Clock::time_point started, unsigned limitMs) {
    if (error == ERROR_INTERNET_TIMEOUT || error == WSAETIMEDOUT)
        return true;
    if (limitMs == 0 ||
        (error != ERROR_INTERNET_CONNECTION_ABORTED && error != ERROR_INTERNET_CONNECTION_RESET))
        return false;
    return Clock::now() - started >= std::chrono::milliseconds(limitMs);
}

class WinINetRequest;

/// What a connection and its requests share (requests may outlive the connection).
struct Session {
    std::string agent;
    std::string host;
    unsigned short port = 0;
    bool secure = false;
    std::mutex mutex;
    /// The current internet and connection handles (guarded by the mutex).
    HINTERNET internet = NULL;
    HINTERNET connection = NULL;
    /// Handles replaced by a change of the proxy settings: requests opened on
    /// them may still run, and closing a parent handle would end them.
    std::vector<std::pair<HINTERNET, HINTERNET>> retired;
    std::condition_variable freed;
    unsigned busy = 0;
    std::atomic<unsigned> maxSlots{12};
    std::atomic<unsigned> connectTimeout{0};
    std::atomic<unsigned> readTimeout{0};
    /// Requests inside a blocking WinINet call, with the signal they watch.
    std::vector<std::pair<WinINetRequest*, const AbortSignal*>> blocked;

    ~Session() {
        retired.emplace_back(internet, connection);
        for (auto& h : retired) {
            if (h.second && !InternetCloseHandle(h.second))
                logging::Logger::mROOT_LOGGER.warn("Unable to close connection handle");
            if (h.first && !InternetCloseHandle(h.first))
                logging::Logger::mROOT_LOGGER.warn("Unable to close internet handle");
        }
    }

    /// Opens an internet handle with the given proxy use and a connection to
    /// the server on it, with the timeouts set; they replace the current pair.
    bool openHandles(bool useSystemProxies, std::string& error) {
        HINTERNET i = InternetOpenA(
            agent.c_str(), useSystemProxies ? INTERNET_OPEN_TYPE_PRECONFIG : INTERNET_OPEN_TYPE_DIRECT, NULL,
            NULL, INTERNET_FLAG_NO_CACHE_WRITE);
        HINTERNET c =
            i ? InternetConnectA(i, host.c_str(), port, NULL, NULL, INTERNET_SERVICE_HTTP, 0, 0) : NULL;
        if (!c) {
            error = errorText(GetLastError());
            if (i)
                InternetCloseHandle(i);
            return false;
        }
        std::lock_guard<std::mutex> lock(mutex);
        if (internet)
            retired.emplace_back(internet, connection);
        internet = i;
        connection = c;
        for (DWORD option :
             {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT})
            applyTimeout(option);
        return true;
    }
    HINTERNET currentConnection() {
        std::lock_guard<std::mutex> lock(mutex);
        return connection;
    }
    /// Sets a timeout option of the connection handle from the stored values; with the mutex held.
    bool applyTimeout(DWORD option) {
        unsigned ms = option == INTERNET_OPTION_CONNECT_TIMEOUT ? connectTimeout.load() : readTimeout.load();
        if (ms == 0 && option == INTERNET_OPTION_CONNECT_TIMEOUT)
            return true;                                // WinINet's default
        return setOption(option, ms ? ms : 0xFFFFFFFF); // no limit is all ones to WinINet
    }
    bool setOption(DWORD option, DWORD value) {
        return InternetSetOptionA(connection, option, &value, sizeof(value)) != FALSE;
    }

    /// Waits for a free connection; false on timeout or abort (`aborted` tells which).
    bool acquire(const AbortSignal& abort, bool& aborted) {
        aborted = false;
        unsigned limit = connectTimeout.load();
        Clock::time_point deadline =
            Clock::now() + std::chrono::milliseconds(limit ? limit : DEFAULT_SLOT_WAIT_MS);
        std::unique_lock<std::mutex> lock(mutex);
        while (busy >= std::max(1u, maxSlots.load())) {
            if (abort.aborted()) {
                aborted = true;
                return false;
            }
            if (freed.wait_until(lock, deadline) == std::cv_status::timeout &&
                busy >= std::max(1u, maxSlots.load()))
                return false;
        }
        ++busy;
        return true;
    }
    void release() {
        std::lock_guard<std::mutex> lock(mutex);
        --busy;
        freed.notify_one();
    }
    void wakeup();
};

class WinINetRequest : public HTTPRequest {
public:
    WinINetRequest(std::shared_ptr<Session> session, HINTERNET handle, const char* method)
        : mSession(std::move(session)), mHandle(handle), mHead(strcmp(method, "HEAD") == 0) {}

    ~WinINetRequest() override {
        closeHandle();
        releaseSlot();
    }

    bool addHeaders(const std::string& raw) override {
        size_t pos = 0;
        while (pos < raw.size()) {
            size_t end = raw.find('\n', pos);
            std::string line = raw.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
            pos = end == std::string::npos ? raw.size() : end + 1;
            while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
                line.pop_back();
            if (line.empty())
                continue;
            size_t colon = line.find(':');
            if (colon == std::string::npos || colon == 0)
                return false;
            line += "\r\n";
            if (!HttpAddRequestHeadersA(handle(), line.c_str(), (DWORD)line.size(), HTTP_ADDREQ_FLAG_ADD))
                return failed(GetLastError());
            mAddedNames.push_back(lower(line.data(), colon));
        }
        return true;
    }

    bool hasHeader(const char* name) const override {
        std::string n = lower(name, strlen(name));
        return std::find(mAddedNames.begin(), mAddedNames.end(), n) != mAddedNames.end();
    }

    TransportResult send(const void* body, unsigned size, const AbortSignal& abort) override {
        bool aborted = false;
        if (!mSlot) {
            if (!mSession->acquire(abort, aborted))
                return fail(aborted ? TR_ABORTED : TR_CONNECT_TIMEOUT, ERROR_INTERNET_TIMEOUT,
                            aborted ? "aborted" : "no free connection");
            mSlot = true;
        }
        BOOL sent;
        DWORD error;
        const Clock::time_point started = Clock::now();
        {
            Blocking guard(*this, abort);
            if (guard.aborted())
                return fail(TR_ABORTED, ERROR_INTERNET_OPERATION_CANCELLED, "aborted");
            sent = HttpSendRequestA(guard.handle(), NULL, 0, const_cast<void*>(body), body ? size : 0);
            error = sent ? 0 : GetLastError();
        }
        if (mCancelled || abort.aborted())
            return fail(TR_ABORTED, ERROR_INTERNET_OPERATION_CANCELLED, "aborted");
        if (!sent)
            return fail(timedOut(error, started, mSession->readTimeout.load()) ? TR_CONNECT_TIMEOUT
                                                                               : TR_ERROR,
                        error);
        DWORD status = 0, length = sizeof(status);
        if (HttpQueryInfoA(mHandle, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &length, NULL))
            mStatus = (int)status;
        readHeaders();
        SYSTEMTIME modified;
        length = sizeof(modified);
        if (HttpQueryInfoA(mHandle, HTTP_QUERY_LAST_MODIFIED | HTTP_QUERY_FLAG_SYSTEMTIME, &modified, &length,
                           NULL)) {
            FILETIME ft;
            if (SystemTimeToFileTime(&modified, &ft)) {
                unsigned long long ticks = ((unsigned long long)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
                mLastModified = (__int64)(ticks / 10000000ULL) - platform::FILETIME_UNIX_OFFSET;
            }
        }
        mLength = parseLength(mResponse.get("content-length"));
        // Nothing follows the head of a HEAD answer or of a bodiless status.
        if (mHead || mStatus == 204 || mStatus == 304 || mLength == 0)
            finish();
        return TR_OK;
    }

    int getStatus() const override { return mStatus; }
    const http::HeaderMap& getResponseHeaders() const override { return mResponse; }
    long long getContentLength() const override { return mLength; }
    __int64 getLastModified() const override { return mLastModified; }

    unsigned available() const override {
        if (mDone || !mHandle)
            return 0;
        DWORD n = 0;
        return InternetQueryDataAvailable(mHandle, &n, 0, 0) ? (unsigned)n : 0;
    }

    TransportResult read(void* buffer, unsigned size, unsigned& got, const AbortSignal& abort) override {
        got = 0;
        if (mDone)
            return TR_OK;
        if (!mHandle)
            return fail(TR_ERROR, ERROR_INVALID_HANDLE, "request not sent");
        char* out = static_cast<char*>(buffer);
        while (got < size) {
            DWORD n = 0;
            BOOL ok;
            DWORD error;
            const Clock::time_point started = Clock::now();
            {
                Blocking guard(*this, abort);
                if (guard.aborted())
                    return fail(TR_ABORTED, ERROR_INTERNET_OPERATION_CANCELLED, "aborted");
                ok = InternetReadFile(guard.handle(), out + got, size - got, &n);
                error = ok ? 0 : GetLastError();
            }
            if (mCancelled || abort.aborted())
                return fail(TR_ABORTED, ERROR_INTERNET_OPERATION_CANCELLED, "aborted");
            if (!ok)
                return fail(timedOut(error, started, mSession->readTimeout.load()) ? TR_READ_TIMEOUT
                                                                                   : TR_ERROR,
                            error);
            got += n;
            mReceived += n;
            if (n == 0) {
                if (mLength >= 0 && mReceived < (unsigned long long)mLength)
                    return fail(TR_ERROR, ERROR_INTERNET_CONNECTION_RESET); // the server went away
                finish();
                break;
            }
            if (mLength >= 0 && mReceived >= (unsigned long long)mLength) {
                finish();
                break;
            }
        }
        return TR_OK;
    }

    bool finished() const override { return mDone; }
    int getError() const override { return mError; }
    const char* getErrorText() const override { return mErrorText.c_str(); }

    /// Called by Session::wakeup() with the session's mutex held.
    void cancel() {
        mCancelled = true;
        closeHandle();
    }

private:
    /// Registers the request as blocked in WinINet for the scope, so that an
    /// abort can close its handle.
    class Blocking {
    public:
        Blocking(WinINetRequest& r, const AbortSignal& abort) : mRequest(r) {
            std::lock_guard<std::mutex> lock(r.mSession->mutex);
            mHandle = r.mHandle;
            mAborted = r.mCancelled || !mHandle || abort.aborted();
            if (!mAborted)
                r.mSession->blocked.emplace_back(&r, &abort);
        }
        ~Blocking() {
            std::lock_guard<std::mutex> lock(mRequest.mSession->mutex);
            auto& b = mRequest.mSession->blocked;
            for (auto i = b.begin(); i != b.end(); ++i)
                if (i->first == &mRequest) {
                    b.erase(i);
                    break;
                }
        }
        bool aborted() const { return mAborted; }
        HINTERNET handle() const { return mHandle; }

    private:
        WinINetRequest& mRequest;
        HINTERNET mHandle;
        bool mAborted;
    };

    static long long parseLength(const char* v) {
        if (!v || !isdigit((unsigned char)*v))
            return -1;
        long long n = strtoll(v, nullptr, 10);
        return n < 0 ? -1 : n;
    }

    HINTERNET handle() const { return mHandle; }

    void closeHandle() {
        if (mHandle) {
            InternetCloseHandle(mHandle);
            mHandle = NULL;
        }
    }

    void releaseSlot() {
        if (mSlot) {
            mSlot = false;
            mSession->release();
        }
    }

    /// The whole body was handed out: the connection goes back to WinINet's pool.
    void finish() {
        mDone = true;
        std::lock_guard<std::mutex> lock(mSession->mutex);
        closeHandle();
        if (mSlot) {
            mSlot = false;
            --mSession->busy;
            mSession->freed.notify_one();
        }
    }

    void readHeaders() {
        mResponse.clear();
        DWORD length = 0;
        HttpQueryInfoA(mHandle, HTTP_QUERY_RAW_HEADERS_CRLF, NULL, &length, NULL);
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || length == 0)
            return;
        std::string raw(length, '\0');
        if (!HttpQueryInfoA(mHandle, HTTP_QUERY_RAW_HEADERS_CRLF, &raw[0], &length, NULL))
            return;
        raw.resize(std::min<size_t>(length, raw.size()));
        size_t pos = raw.find('\n'); // past the status line
        while (pos != std::string::npos && pos + 1 < raw.size()) {
            size_t start = pos + 1;
            size_t end = raw.find('\n', start);
            std::string line = raw.substr(start, end == std::string::npos ? std::string::npos : end - start);
            pos = end;
            while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
                line.pop_back();
            size_t colon = line.find(':');
            if (colon == std::string::npos || colon == 0)
                continue;
            size_t v = colon + 1, e = line.size();
            while (v < e && (line[v] == ' ' || line[v] == '\t'))
                ++v;
            while (e > v && (line[e - 1] == ' ' || line[e - 1] == '\t'))
                --e;
            mResponse.add(lower(line.data(), colon).c_str(), line.substr(v, e - v).c_str());
        }
    }

    bool failed(DWORD code) {
        mError = (int)code;
        mErrorText = errorText(code);
        return false;
    }
    TransportResult fail(TransportResult r, DWORD code, const char* text = nullptr) {
        mError = (int)code;
        mErrorText = text ? text : errorText(code);
        return r;
    }

    std::shared_ptr<Session> mSession;
    HINTERNET mHandle;
    bool mHead;
    bool mSlot = false;
    bool mDone = false;
    std::atomic<bool> mCancelled{false};
    std::vector<std::string> mAddedNames;
    http::HeaderMap mResponse;
    int mStatus = 0;
    long long mLength = -1;
    __int64 mLastModified = -1;
    unsigned long long mReceived = 0;
    int mError = 0;
    std::string mErrorText;
};

void Session::wakeup() {
    std::lock_guard<std::mutex> lock(mutex);
    for (auto& b : blocked)
        if (b.second->aborted())
            b.first->cancel();
    freed.notify_all();
}

class WinINetConnection : public HTTPConnection {
public:
    explicit WinINetConnection(std::shared_ptr<Session> session) : mSession(std::move(session)) {}

    HTTPRequest* openRequest(const char* method, const char* path, std::string& error) override {
        static const char* ACCEPT[] = {"*/*", NULL};
        std::string target = path && *path == '/' ? path : std::string("/") + (path ? path : "");
        // Redirects reach the caller as they are, as on every platform.
        DWORD flags = REQUEST_FLAGS | INTERNET_FLAG_NO_AUTO_REDIRECT | INTERNET_FLAG_NO_COOKIES |
                      (mSession->secure ? INTERNET_FLAG_SECURE : 0);
        HINTERNET h = HttpOpenRequestA(mSession->currentConnection(), method, target.c_str(), "HTTP/1.1",
                                       NULL, ACCEPT, flags, 0);
        if (!h) {
            error = errorText(GetLastError());
            return nullptr;
        }
        return new WinINetRequest(mSession, h, method);
    }
    bool setTimeout(TimeoutKind kind, unsigned ms, int& error, unsigned& kept) override {
        std::lock_guard<std::mutex> lock(mSession->mutex);
        if (kind == TIMEOUT_CONNECT)
            mSession->connectTimeout = ms;
        else
            mSession->readTimeout = ms; // sends wait as long as reads
        const DWORD option = kind == TIMEOUT_CONNECT   ? INTERNET_OPTION_CONNECT_TIMEOUT
                             : kind == TIMEOUT_RECEIVE ? INTERNET_OPTION_RECEIVE_TIMEOUT
                                                       : INTERNET_OPTION_SEND_TIMEOUT;
        if (mSession->applyTimeout(option))
            return true;
        error = (int)GetLastError();
        DWORD value = 0, length = sizeof(value);
        kept = InternetQueryOptionA(mSession->connection, option, &value, &length) ? (unsigned)value : 0;
        return false;
    }
    bool setUseSystemProxies(bool use) override {
        INTERNET_PROXY_INFO info = {};
        info.dwAccessType = use ? INTERNET_OPEN_TYPE_PRECONFIG : INTERNET_OPEN_TYPE_DIRECT;
        {
            std::lock_guard<std::mutex> lock(mSession->mutex);
            if (InternetSetOptionA(mSession->internet, INTERNET_OPTION_PROXY, &info, sizeof(info)))
                return true;
        }
        // Where the handle refuses the option, new handles take the access type.
        std::string error;
        return mSession->openHandles(use, error);
    }
    bool setMaxConnections(unsigned n) override {
        if (n == 0)
            return false;
        {
            std::lock_guard<std::mutex> lock(mSession->mutex);
            mSession->maxSlots = n;
            mSession->freed.notify_all();
        }
        // WinINet's own limits are process-wide; they are only ever raised.
        DWORD current = 0, length = sizeof(current);
        if (!InternetQueryOptionA(NULL, INTERNET_OPTION_MAX_CONNS_PER_SERVER, &current, &length))
            return false;
        if (current >= n)
            return true;
        DWORD value = n;
        bool ok =
            InternetSetOptionA(NULL, INTERNET_OPTION_MAX_CONNS_PER_SERVER, &value, sizeof(value)) != FALSE;
        return InternetSetOptionA(NULL, INTERNET_OPTION_MAX_CONNS_PER_1_0_SERVER, &value, sizeof(value)) &&
               ok;
    }
    void wakeup() override { mSession->wakeup(); }

private:
    std::shared_ptr<Session> mSession;
};

} // namespace

HTTPConnection* HTTPConnection::open(const TransportSettings& s, std::string& error) {
    std::shared_ptr<Session> session = std::make_shared<Session>();
    session->agent = s.agent;
    session->host = s.host;
    session->port = s.port;
    session->secure = lower(s.scheme.data(), s.scheme.size()) == "https";
    session->connectTimeout = s.connectTimeout;
    session->readTimeout = s.readTimeout;
    session->maxSlots = s.maxConnections ? s.maxConnections : 1;
    if (!session->openHandles(s.useSystemProxies, error))
        return nullptr;
    std::unique_ptr<WinINetConnection> connection(new WinINetConnection(session));
    return connection.release();
}

} // namespace detail
} // namespace vfs
} // namespace tarso
