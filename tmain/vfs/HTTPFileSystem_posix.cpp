// The HTTP file system's transport over libcurl. Each request borrows a slot
// (an easy handle in a multi handle of its own) from the connection's pool;
// a slot keeps its connection alive between requests, and the pool holds at
// most the connection limit of slots, so requests beyond it wait for one.
// The body is pulled by the caller's reads: the write callback copies into
// the caller's buffer, keeps at most one surplus chunk, and pauses the
// transfer while that chunk is unread, so a body is never held in memory.
#include <tmain/vfs/detail/HTTPTransport.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <memory>
#include <mutex>
#include <vector>

namespace tarso {
namespace vfs {
namespace detail {

namespace {

typedef std::chrono::steady_clock Clock;

/// What curl reads from the socket at a time (and the largest chunk a
/// write callback gets).
const long RECEIVE_BUFFER = 512 * 1024;
/// The longest single wait on the network; wakeup() cuts it short.
const int POLL_INTERVAL_MS = 1000;

struct Slot {
    CURL* easy = nullptr;
    CURLM* multi = nullptr;
};

/// The state shared by a connection and its requests (which may outlive it).
struct Pool {
    std::mutex mutex;
    std::condition_variable freed;
    std::vector<Slot> idle;
    std::vector<CURLM*> busy;
    unsigned total = 0;
    std::atomic<unsigned> maxSlots{12};
    std::atomic<unsigned> connectTimeout{0};
    std::atomic<unsigned> readTimeout{0};
    std::atomic<bool> useSystemProxies{true};
    std::atomic<unsigned> wakeups{0};
    std::string base; // "scheme://host:port"
    std::string agent;

    ~Pool() {
        for (Slot& s : idle)
            destroy(s);
    }
    static void destroy(Slot& s) {
        if (s.multi)
            curl_multi_cleanup(s.multi);
        if (s.easy)
            curl_easy_cleanup(s.easy);
        s = Slot();
    }
    /// Waits for a free slot until `deadline` (none when unset); false on
    /// timeout or abort (`aborted` tells which).
    bool acquire(Slot& out, const AbortSignal& abort, bool& aborted) {
        aborted = false;
        unsigned limit = connectTimeout.load();
        Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(limit ? limit : 60000);
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            if (!idle.empty()) {
                out = idle.back();
                idle.pop_back();
                break;
            }
            if (total < std::max(1u, maxSlots.load())) {
                Slot s;
                s.easy = curl_easy_init();
                s.multi = curl_multi_init();
                if (!s.easy || !s.multi) {
                    destroy(s);
                    return false;
                }
                curl_multi_setopt(s.multi, CURLMOPT_MAXCONNECTS, 1L);
                ++total;
                out = s;
                break;
            }
            if (abort.aborted()) {
                aborted = true;
                return false;
            }
            if (freed.wait_until(lock, deadline) == std::cv_status::timeout && idle.empty() &&
                total >= maxSlots.load())
                return false;
        }
        busy.push_back(out.multi);
        return true;
    }
    void release(Slot& s) {
        std::lock_guard<std::mutex> lock(mutex);
        busy.erase(std::find(busy.begin(), busy.end(), s.multi));
        if (total > std::max(1u, maxSlots.load())) {
            destroy(s);
            --total;
        } else {
            idle.push_back(s);
        }
        s = Slot();
        freed.notify_one();
    }
    void wakeup() {
        std::lock_guard<std::mutex> lock(mutex);
        ++wakeups;
        for (CURLM* m : busy)
            curl_multi_wakeup(m);
        freed.notify_all();
    }
};

std::string lower(const char* s, size_t n) {
    std::string out(s, n);
    for (char& c : out)
        c = (char)tolower((unsigned char)c);
    return out;
}

class CurlRequest : public HTTPRequest {
public:
    CurlRequest(std::shared_ptr<Pool> pool, const char* method, const char* path)
        : mPool(std::move(pool)), mMethod(method),
          mURL(mPool->base + (path && *path == '/' ? "" : "/") + (path ? path : "")) {}

    ~CurlRequest() override {
        releaseSlot();
        curl_slist_free_all(mHeaderList);
    }

    /// Gives the slot (and its connection) back to the pool.
    void releaseSlot() {
        if (mSlot.easy) {
            curl_multi_remove_handle(mSlot.multi, mSlot.easy);
            mPool->release(mSlot);
        }
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
            mAddedNames.push_back(lower(line.data(), colon));
            curl_slist* l = curl_slist_append(mHeaderList, line.c_str());
            if (!l)
                return false;
            mHeaderList = l;
        }
        return true;
    }

    bool hasHeader(const char* name) const override {
        std::string n = lower(name, strlen(name));
        return std::find(mAddedNames.begin(), mAddedNames.end(), n) != mAddedNames.end();
    }

    TransportResult send(const void* body, unsigned size, const AbortSignal& abort) override {
        bool aborted = false;
        if (!mPool->acquire(mSlot, abort, aborted)) {
            mSlot = Slot();
            return fail(aborted ? TR_ABORTED : TR_CONNECT_TIMEOUT, CURLE_OPERATION_TIMEDOUT,
                        aborted ? "aborted" : "no free connection");
        }
        CURL* e = mSlot.easy;
        curl_easy_reset(e);
        curl_easy_setopt(e, CURLOPT_URL, mURL.c_str());
        curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(e, CURLOPT_USERAGENT, mPool->agent.c_str());
        curl_easy_setopt(e, CURLOPT_BUFFERSIZE, RECEIVE_BUFFER);
        curl_easy_setopt(e, CURLOPT_HTTP_CONTENT_DECODING, 0L); // content encodings are decoded above
        unsigned ct = mPool->connectTimeout.load();
        if (ct)
            curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, (long)ct);
        if (!mPool->useSystemProxies.load())
            curl_easy_setopt(e, CURLOPT_PROXY, ""); // ignore http_proxy and friends
        // Through a proxy, an https request first gets the proxy's answer to
        // CONNECT: that head is not the server's and must not end the wait.
        curl_easy_setopt(e, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &CurlRequest::onHeader);
        curl_easy_setopt(e, CURLOPT_HEADERDATA, this);
        curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &CurlRequest::onBody);
        curl_easy_setopt(e, CURLOPT_WRITEDATA, this);
        if (mMethod == "HEAD") {
            curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
        } else if (mMethod == "GET") {
            curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
        } else {
            // POST-style body for POST and PUT; curl would read stdin without one.
            curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE, (long)(body ? size : 0));
            curl_easy_setopt(e, CURLOPT_POSTFIELDS, body ? (const char*)body : "");
            if (mMethod != "POST")
                curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, mMethod.c_str());
            if (!hasHeader("expect"))
                addHeaders("Expect:\r\n"); // no 100-continue round trip
        }
        curl_easy_setopt(e, CURLOPT_HTTPHEADER, mHeaderList);
        if (curl_multi_add_handle(mSlot.multi, e) != CURLM_OK)
            return fail(TR_ERROR, CURLE_FAILED_INIT, "curl_multi_add_handle failed");
        mLastActivity = Clock::now();
        unsigned limit = ct + mPool->readTimeout.load();
        while (!mHeadDone && !mDone) {
            if (!perform())
                return fail(TR_ERROR, CURLE_FAILED_INIT, "curl_multi_perform failed");
            if (mHeadDone || mDone)
                break;
            if (abort.aborted())
                return fail(TR_ABORTED, CURLE_ABORTED_BY_CALLBACK, "aborted");
            int waitMs = POLL_INTERVAL_MS;
            if (ct && mPool->readTimeout.load()) {
                long long idle =
                    std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - mLastActivity)
                        .count();
                if (idle >= (long long)limit)
                    return fail(TR_CONNECT_TIMEOUT, CURLE_OPERATION_TIMEDOUT, "no response");
                waitMs = (int)std::min<long long>(waitMs, limit - idle);
            }
            curl_multi_poll(mSlot.multi, nullptr, 0, waitMs, nullptr);
        }
        if (!mHeadDone) {
            if (mResult == CURLE_OPERATION_TIMEDOUT)
                return fail(TR_CONNECT_TIMEOUT, mResult, curl_easy_strerror(mResult));
            return fail(TR_ERROR, mResult != CURLE_OK ? mResult : CURLE_GOT_NOTHING,
                        curl_easy_strerror(mResult != CURLE_OK ? mResult : CURLE_GOT_NOTHING));
        }
        return TR_OK;
    }

    int getStatus() const override { return mStatus; }
    const http::HeaderMap& getResponseHeaders() const override { return mResponse; }

    long long getContentLength() const override {
        const char* v = mResponse.get("content-length");
        if (!v || !isdigit((unsigned char)*v))
            return -1;
        char* end = nullptr;
        long long n = strtoll(v, &end, 10);
        return n < 0 ? -1 : n;
    }

    __int64 getLastModified() const override {
        const char* v = mResponse.get("last-modified");
        if (!v)
            return -1;
        time_t t = curl_getdate(v, nullptr);
        return t == (time_t)-1 ? -1 : (__int64)t;
    }

    unsigned available() const override { return (unsigned)(mPending.size() - mPendingPos); }

    TransportResult read(void* buffer, unsigned size, unsigned& got, const AbortSignal& abort) override {
        got = 0;
        if (!mSlot.easy && !mDone)
            return fail(TR_ERROR, CURLE_FAILED_INIT, "request not sent");
        char* out = static_cast<char*>(buffer);
        if (mPendingPos < mPending.size()) {
            got = (unsigned)std::min<size_t>(size, mPending.size() - mPendingPos);
            memcpy(out, mPending.data() + mPendingPos, got);
            mPendingPos += got;
            if (mPendingPos == mPending.size()) {
                mPending.clear();
                mPendingPos = 0;
            }
        }
        if (got == size || (mDone && !mPaused)) {
            if (finished())
                releaseSlot(); // a finished body needs its connection no longer
            return got || mResult == CURLE_OK ? TR_OK : failDone();
        }
        mDest = out;
        mGot = got;
        mRoom = size;
        if (mPaused) {
            mPaused = false;
            curl_easy_pause(mSlot.easy, CURLPAUSE_CONT); // may deliver into mDest at once
        }
        TransportResult r = TR_OK;
        unsigned timeout = mPool->readTimeout.load();
        mLastActivity = Clock::now();
        while (mGot < mRoom && !mDone) {
            if (!perform()) {
                r = fail(TR_ERROR, CURLE_FAILED_INIT, "curl_multi_perform failed");
                break;
            }
            if (mGot == mRoom || mDone)
                break;
            if (abort.aborted()) {
                r = fail(TR_ABORTED, CURLE_ABORTED_BY_CALLBACK, "aborted");
                break;
            }
            int waitMs = POLL_INTERVAL_MS;
            if (timeout) {
                long long idle =
                    std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - mLastActivity)
                        .count();
                if (idle >= (long long)timeout) {
                    r = fail(TR_READ_TIMEOUT, CURLE_OPERATION_TIMEDOUT, "read timeout");
                    break;
                }
                waitMs = (int)std::min<long long>(waitMs, timeout - idle);
            }
            curl_multi_poll(mSlot.multi, nullptr, 0, waitMs, nullptr);
        }
        got = mGot;
        mDest = nullptr;
        if (r != TR_OK)
            return r;
        if (got == 0 && mDone && mResult != CURLE_OK)
            return failDone();
        if (finished())
            releaseSlot();
        return TR_OK; // a failure after some bytes is reported by the next read
    }

    bool finished() const override { return mDone && mResult == CURLE_OK && mPendingPos >= mPending.size(); }
    int getError() const override { return mError; }
    const char* getErrorText() const override { return mErrorText.c_str(); }

private:
    TransportResult fail(TransportResult r, int code, const char* text) {
        mError = code;
        mErrorText = text ? text : "";
        return r;
    }
    TransportResult failDone() {
        return fail(mResult == CURLE_OPERATION_TIMEDOUT ? TR_READ_TIMEOUT : TR_ERROR, mResult,
                    curl_easy_strerror(mResult));
    }

    bool perform() {
        int running = 0;
        if (curl_multi_perform(mSlot.multi, &running) != CURLM_OK)
            return false;
        int left = 0;
        while (CURLMsg* m = curl_multi_info_read(mSlot.multi, &left)) {
            if (m->msg == CURLMSG_DONE && m->easy_handle == mSlot.easy) {
                mDone = true;
                mResult = m->data.result;
            }
        }
        return true;
    }

    static size_t onHeader(char* data, size_t size, size_t count, void* self) {
        CurlRequest* r = static_cast<CurlRequest*>(self);
        size_t n = size * count;
        r->mLastActivity = Clock::now();
        size_t len = n;
        while (len && (data[len - 1] == '\r' || data[len - 1] == '\n'))
            --len;
        if (len == 0) {
            if (r->mStatus >= 200)
                r->mHeadDone = true; // an interim 1xx head is followed by the real one
            return n;
        }
        if (len > 5 && strncmp(data, "HTTP/", 5) == 0) {
            r->mResponse.clear();
            const char* sp = (const char*)memchr(data, ' ', len);
            r->mStatus = sp ? atoi(sp + 1) : 0;
            return n;
        }
        const char* colon = (const char*)memchr(data, ':', len);
        if (!colon)
            return n;
        const char* v = colon + 1;
        const char* end = data + len;
        while (v < end && (*v == ' ' || *v == '\t'))
            ++v;
        while (end > v && (end[-1] == ' ' || end[-1] == '\t'))
            --end;
        std::string name = lower(data, (size_t)(colon - data));
        r->mResponse.add(name.c_str(), std::string(v, (size_t)(end - v)).c_str());
        return n;
    }

    static size_t onBody(char* data, size_t size, size_t count, void* self) {
        CurlRequest* r = static_cast<CurlRequest*>(self);
        size_t n = size * count;
        r->mLastActivity = Clock::now();
        size_t used = 0;
        if (r->mDest && r->mGot < r->mRoom) {
            used = std::min<size_t>(n, r->mRoom - r->mGot);
            memcpy(r->mDest + r->mGot, data, used);
            r->mGot += (unsigned)used;
        } else if (r->mPendingPos < r->mPending.size()) {
            r->mPaused = true;
            return CURL_WRITEFUNC_PAUSE; // curl keeps the chunk and delivers it again
        }
        if (used < n) {
            r->mPending.assign(data + used, data + n);
            r->mPendingPos = 0;
        }
        return n;
    }

    std::shared_ptr<Pool> mPool;
    Slot mSlot;
    std::string mMethod;
    std::string mURL;
    curl_slist* mHeaderList = nullptr;
    std::vector<std::string> mAddedNames;
    http::HeaderMap mResponse;
    int mStatus = 0;
    bool mHeadDone = false;
    bool mDone = false;
    bool mPaused = false;
    CURLcode mResult = CURLE_OK;
    char* mDest = nullptr;
    unsigned mGot = 0;
    unsigned mRoom = 0;
    std::vector<char> mPending;
    size_t mPendingPos = 0;
    Clock::time_point mLastActivity;
    int mError = 0;
    std::string mErrorText;
};

class CurlConnection : public HTTPConnection {
public:
    explicit CurlConnection(std::shared_ptr<Pool> pool) : mPool(std::move(pool)) {}

    HTTPRequest* openRequest(const char* method, const char* path, std::string&) override {
        return new CurlRequest(mPool, method, path);
    }
    bool setTimeout(TimeoutKind kind, unsigned ms, int&, unsigned&) override {
        if (kind == TIMEOUT_CONNECT)
            mPool->connectTimeout = ms;
        else if (kind == TIMEOUT_RECEIVE)
            mPool->readTimeout = ms;
        // Sends wait as reads do: libcurl has one limit for a stalled transfer.
        return true;
    }
    bool setUseSystemProxies(bool use) override {
        mPool->useSystemProxies = use;
        return true;
    }
    bool setMaxConnections(unsigned n) override {
        if (n == 0)
            return false;
        mPool->maxSlots = n;
        std::lock_guard<std::mutex> lock(mPool->mutex);
        while (mPool->total > n && !mPool->idle.empty()) {
            Pool::destroy(mPool->idle.back());
            mPool->idle.pop_back();
            --mPool->total;
        }
        mPool->freed.notify_all();
        return true;
    }
    void wakeup() override { mPool->wakeup(); }

private:
    std::shared_ptr<Pool> mPool;
};

} // namespace

HTTPConnection* HTTPConnection::open(const TransportSettings& s, std::string& error) {
    static const CURLcode init = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (init != CURLE_OK) {
        error = curl_easy_strerror(init);
        return nullptr;
    }
    std::shared_ptr<Pool> pool = std::make_shared<Pool>();
    pool->base = s.scheme + "://" + s.host + ":" + std::to_string(s.port);
    pool->agent = s.agent;
    pool->connectTimeout = s.connectTimeout;
    pool->readTimeout = s.readTimeout;
    pool->useSystemProxies = s.useSystemProxies;
    pool->maxSlots = s.maxConnections ? s.maxConnections : 1;
    return new CurlConnection(pool);
}

} // namespace detail
} // namespace vfs
} // namespace tarso
