#include <tmain/vfs/HTTPFileSystem.h>

#include <cstdio>
#include <ctime>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/StringUtil.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/HTTPFile.h>
#include <tmain/vfs/detail/HTTPTransport.h>

namespace tarso {
namespace vfs {

const ::core::Type HTTPFileSystem::TYPE("tarso::vfs::HTTPFileSystem", &FileSystem::TYPE);

unsigned HTTPFileSystem::mMAX_CONNECTIONS = 12;
bool HTTPFileSystem::mDEFAULT_USE_SYSTEM_PROXYES = true;
std::atomic<int> HTTPFileSystem::sInstanceCounter{0};

namespace {

logging::Logger& log() {
    return logging::Logger::mROOT_LOGGER;
}

/// Fires once the file system's I/O handle moved on from the captured one.
class HandleSignal : public detail::AbortSignal {
public:
    HandleSignal(const HTTPFileSystem* fs, int handle) : mFS(fs), mHandle(handle) {}
    bool aborted() const override { return !mFS->isValid(mHandle); }

private:
    const HTTPFileSystem* mFS;
    int mHandle;
};

} // namespace

HTTPFileSystem::HTTPFileSystem(const char* url, unsigned lookupTimeout, unsigned readTimeout)
    : mLookupTimeout(lookupTimeout), mReadTimeout(readTimeout), mIOHandle(0), mIOEnabled(true),
      mUseSystemProxies(mDEFAULT_USE_SYSTEM_PROXYES), mFastLookup(false) {
    if (!URLComponents::crack(url, mURL))
        throw HTTPException(0, "HTTPFileSystem: Invalid URL");
    setRootPath(mURL.path.c_str());
    afterInit();
}

HTTPFileSystem::~HTTPFileSystem() {
    beforeShutdown();
}

void HTTPFileSystem::setMaxConnections(unsigned n) {
    mMAX_CONNECTIONS = n;
}

void HTTPFileSystem::applyMaxConnections() {
    if (!mConnection || !mConnection->setMaxConnections(mMAX_CONNECTIONS))
        log().warn("Unable to set max connections!");
}

void HTTPFileSystem::afterInit() {
    int instance = ++sInstanceCounter;
    char agent[32];
    snprintf(agent, sizeof(agent), "tmain.%d", instance);
    detail::TransportSettings settings;
    settings.scheme = mURL.scheme;
    settings.host = mURL.host;
    settings.port = mURL.port;
    settings.agent = agent;
    settings.useSystemProxies = mUseSystemProxies;
    settings.connectTimeout = mLookupTimeout;
    settings.readTimeout = mReadTimeout;
    settings.maxConnections = mMAX_CONNECTIONS;
    std::string error;
    mConnection.reset(detail::HTTPConnection::open(settings, error));
    if (!mConnection)
        throw HTTPException(0, "Unable to initialize internet connection for HTTPSileSystem (%s://%s:%d%s)",
                            mURL.scheme.c_str(), mURL.host.c_str(), (int)mURL.port, mRootPath.c_str());
    applyMaxConnections();
    bool http = text::StringUtil::compareIgnoreCase(mURL.scheme.c_str(), "http") == 0;
    bool https = text::StringUtil::compareIgnoreCase(mURL.scheme.c_str(), "https") == 0;
    if (!http && !https) {
        mConnection.reset();
        throw HTTPException(0, "Invalid protocol for HTTPSileSystem (%s://%s:%d%s)", mURL.scheme.c_str(),
                            mURL.host.c_str(), (int)mURL.port, mRootPath.c_str());
    }
    if (mURL.host.empty()) {
        mConnection.reset();
        throw HTTPException(0, "Unable to create HTTPSileSystem for URL %s://%s:%d%s", mURL.scheme.c_str(),
                            mURL.host.c_str(), (int)mURL.port, mRootPath.c_str());
    }
    setLookupTimeout(mLookupTimeout);
    setReadTimeout(mReadTimeout);
}

void HTTPFileSystem::beforeShutdown() {
    // Requests still open keep their share of the transport alive.
    mConnection.reset();
}

void HTTPFileSystem::setLookupTimeout(unsigned ms) {
    mLookupTimeout = ms;
    int error = 0;
    unsigned kept = 0;
    if (mConnection && !mConnection->setTimeout(detail::TIMEOUT_CONNECT, ms, error, kept))
        log().warn("Unable to set HTTP connection timeout (%d). Using default (%dms)", error, (int)kept);
}

void HTTPFileSystem::setReadTimeout(unsigned ms) {
    mReadTimeout = ms;
    int error = 0;
    unsigned kept = 0;
    if (mConnection && !mConnection->setTimeout(detail::TIMEOUT_RECEIVE, ms, error, kept))
        log().warn("Unable to set HTTP receive timeout (%d). Using default (%dms)", error, (int)kept);
    if (mConnection && !mConnection->setTimeout(detail::TIMEOUT_SEND, ms, error, kept))
        log().warn("Unable to set HTTP send timeout (%d). Using default (%dms)", error, (int)kept);
}

void HTTPFileSystem::setUseSystemProxies(bool use) {
    mUseSystemProxies = use;
    if (mConnection && !mConnection->setUseSystemProxies(use))
        log().warn("Unable to change proxy settings");
}

void HTTPFileSystem::setRootPath(const char* path) {
    mRootPath = path ? path : "";
    while (!mRootPath.empty() && mRootPath.back() == '/')
        mRootPath.pop_back();
    if (!mRootPath.empty() && mRootPath[0] != '/')
        mRootPath.insert(mRootPath.begin(), '/');
}

std::string HTTPFileSystem::getServerPath(const char* path) const {
    const char* p = path ? path : "";
    while (*p == '/')
        ++p;
    return mRootPath + "/" + p;
}

std::string HTTPFileSystem::getAbsolutePath(const char* path) {
    std::string url = mURL.scheme + "://" + mURL.host;
    bool https = text::StringUtil::compareIgnoreCase(mURL.scheme.c_str(), "https") == 0;
    if (mURL.port != (https ? 443 : 80))
        url += ":" + std::to_string(mURL.port);
    return url + getServerPath(path);
}

std::string HTTPFileSystem::getRelativePath(const char*) {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::getRelativePath(...)");
}

bool HTTPFileSystem::isContainer(const char*) const {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::isContainer(...)");
}
File* HTTPFileSystem::create(const char*, bool) {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::create(...)");
}
void HTTPFileSystem::createPath(const char*) {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::createPath(...)");
}
void HTTPFileSystem::remove(const char*, unsigned) {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::remove(...)");
}
void HTTPFileSystem::touch(const char*) {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::touch(...)");
}
void HTTPFileSystem::list(const char*, FileList&) const {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::list(...)");
}
void HTTPFileSystem::list(const char*, const char*, FileList&) const {
    throw ::core::UnsupportedOperationException("HTTPFileSystem::list(...)");
}

bool HTTPFileSystem::supportsLookupData(const ::core::Type& type) const {
    return type.instanceOf(HTTPData::TYPE);
}

HTTPHeaderMap HTTPFileSystem::getHeaders() const {
    std::lock_guard<std::mutex> lock(mHeadersMutex);
    return mHeaders;
}

std::string HTTPFileSystem::getHeader(const char* name) const {
    std::lock_guard<std::mutex> lock(mHeadersMutex);
    std::string n = name ? name : "";
    for (char& c : n)
        c = (char)tolower((unsigned char)c);
    const char* v = mHeaders.get(n.c_str());
    return v ? v : "";
}

void HTTPFileSystem::abortIO() {
    ++mIOHandle;
    if (mConnection)
        mConnection->wakeup();
}

void HTTPFileSystem::stopIO() {
    mIOEnabled = false;
    if (mConnection)
        mConnection->wakeup();
}

void HTTPFileSystem::resumeIO() {
    mIOEnabled = true;
}

bool HTTPFileSystem::exists(const char* path) const {
    unsigned size = 0;
    __int64 time = 0;
    try {
        return exists(path, size, time);
    } catch (const HTTPException& e) {
        if (e.getStatusCode() == 404)
            return false;
        throw;
    }
}

bool HTTPFileSystem::exists(const char* path, unsigned& size, __int64& time) const {
    size = 0;
    time = 0;
    if (!mIOEnabled.load())
        throw stream::StreamAbortedException("HTTPFileSystem::mIOEnabled");
    HandleSignal signal(this, mIOHandle.load());
    std::string serverPath = getServerPath(path);
    std::string url = const_cast<HTTPFileSystem*>(this)->getAbsolutePath(path);
    std::string error;
    std::unique_ptr<detail::HTTPRequest> request(
        mConnection ? mConnection->openRequest("HEAD", serverPath.c_str(), error) : nullptr);
    if (!request)
        throw HTTPException(0, "HTTPFileSystem: Could not send HEAD command to '%s' (%d)", url.c_str(), 0);
    if (!request->addHeaders("Cache-Control: no-cache\r\nPragma: no-cache\r\n"))
        throw HTTPException(0, "HTTPFileSystem: Could not send headers for HEAD command to '%s' (%d)",
                            url.c_str(), request->getError());
    switch (request->send(nullptr, 0, signal)) {
    case detail::TR_OK:
        break;
    case detail::TR_CONNECT_TIMEOUT:
        throw stream::ConnectTimeoutException("HTTPFileSystem: time out sending HEAD command to '%s' (%dms)",
                                              url.c_str(), (int)mLookupTimeout);
    case detail::TR_READ_TIMEOUT:
        throw stream::ReadTimeoutException("HTTPFileSystem: time out sending HEAD command to '%s' (%dms)",
                                           url.c_str(), (int)mReadTimeout);
    case detail::TR_ABORTED:
        throw stream::StreamAbortedException("HTTPFileSystem IO operations have been aborted");
    default:
        throw HTTPException(0, "HTTPFileSystem: could not send HEAD command to '%s' (%d)", url.c_str(),
                            request->getError());
    }
    int status = request->getStatus();
    if (status <= 0)
        throw HTTPException(0, "HTTPFileSystem: Could not get status code for query on '%s'", url.c_str());
    {
        std::lock_guard<std::mutex> lock(mHeadersMutex);
        mHeaders.clear();
        mHeaders.add(request->getResponseHeaders());
    }
    if (status != 200 && status != 302)
        throw HTTPException(status, "Server error");
    __int64 modified = request->getLastModified();
    if (modified < 0)
        log().debug("No last modified header in HTTPInputStream for '%s' (%d)", url.c_str(), status);
    else
        time = modified;
    long long length = request->getContentLength();
    if (status == 200 && length > 0)
        size = length > 0xFFFFFFFFll ? 0xFFFFFFFFu : (unsigned)length;
    return true;
}

void HTTPFileSystem::lookup(const char* path, File* file, LookupData* data) {
    HTTPFile* target = dynamic_cast<HTTPFile*>(file);
    if (!target || target->getOwner() != this)
        throw ::core::IllegalArgumentException("HTTPFileSystem::lookup: not a file of this file system");
    if (!mIOEnabled.load())
        throw stream::StreamAbortedException("HTTPFileSystem::mIOEnabled");
    HTTPData* request = data && data->instanceOf(HTTPData::TYPE) ? static_cast<HTTPData*>(data) : nullptr;
    if (request) {
        target->reset(path, 0, (__int64)::time(nullptr), request);
        return;
    }
    unsigned size = 0;
    __int64 time = 0;
    if (!mFastLookup && !exists(path, size, time))
        throw FileNotFoundException(path);
    target->reset(path, size, time, nullptr);
}

File* HTTPFileSystem::lookup(const char* path, LookupData* data) {
    if (!mIOEnabled.load())
        throw stream::StreamAbortedException("HTTPFileSystem::mIOEnabled");
    HTTPData* request = data && data->instanceOf(HTTPData::TYPE) ? static_cast<HTTPData*>(data) : nullptr;
    if (request)
        return new HTTPFile(path, this, 0, (__int64)::time(nullptr), request);
    unsigned size = 0;
    __int64 time = 0;
    if (!mFastLookup && !exists(path, size, time))
        throw FileNotFoundException(path);
    return new HTTPFile(path, this, size, time, nullptr);
}

} // namespace vfs
} // namespace tarso
