#include <tmain/stream/HTTPInputStream.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/StringUtil.h>
#include <tmain/stream/DeflateInputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/HTTPData.h>
#include <tmain/vfs/HTTPException.h>
#include <tmain/vfs/HTTPFileSystem.h>
#include <tmain/vfs/detail/HTTPTransport.h>

namespace tarso {
namespace stream {

namespace {

const char* const ABORTED = "HTTPFileSystem IO operations have been aborted";

class HandleSignal : public vfs::detail::AbortSignal {
public:
    HandleSignal(const vfs::HTTPFileSystem* fs, int handle) : mFS(fs), mHandle(handle) {}
    bool aborted() const override { return !mFS->isValid(mHandle); }

private:
    const vfs::HTTPFileSystem* mFS;
    int mHandle;
};

} // namespace

/// The raw (still encoded) body, as the source of the inflater.
class HTTPInputStream::Body : public InputStream {
public:
    explicit Body(HTTPInputStream& owner) : mOwner(owner) {}
    void open(EOpenMode) override {}
    void close() override {}
    bool isOpen() const override { return true; }
    unsigned tell() const override { return mOwner.mRawPosition; }
    bool hasError() const override { return mOwner.mError; }
    unsigned available() const override { return mOwner.mRequest ? mOwner.mRequest->available() : 0; }
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        return mOwner.rawRead(buffer, size * count);
    }
    unsigned readLine(char*, int, char) override {
        throw ::core::UnsupportedOperationException("HTTPInputStream::readLine not yet implemented");
    }
    bool eof() const override { return !mOwner.mRequest || mOwner.mRequest->finished(); }
    std::istream* getSTLStream() override {
        throw ::core::UnsupportedOperationException("HTTPInputStream::getSTLStream()");
    }

private:
    HTTPInputStream& mOwner;
};

HTTPInputStream::HTTPInputStream(void* connection, const char* path, vfs::HTTPFileSystem* fs,
                                 long expectedSize, vfs::HTTPData* data)
    : mConnection(connection), mPath(path ? path : ""), mFS(fs), mExpectedSize(expectedSize), mData(data),
      mIOHandle(fs ? fs->getIOHandle() : 0), mOpen(false), mError(false), mAtEnd(false), mPosition(0),
      mRawPosition(0), mRawEnd(-1), mSize(expectedSize > 0 ? expectedSize : -1) {}

HTTPInputStream::~HTTPInputStream() {
    close();
}

std::string HTTPInputStream::describe() const {
    return mPath;
}

void HTTPInputStream::checkHandle() const {
    if (!mFS->isValid(mIOHandle))
        throw StreamAbortedException("%s", ABORTED);
}

void HTTPInputStream::open(EOpenMode mode) {
    openAt(mode, 0);
}

void HTTPInputStream::openAt(EOpenMode, unsigned position) {
    close();
    if (!mFS->isIOEnabled())
        throw StreamAbortedException("HTTPFileSystem::mIOEnabled");
    mIOHandle = mFS->getIOHandle();
    mPosition = 0;
    mError = false;
    mSize = mExpectedSize > 0 ? mExpectedSize : -1;
    // A start at or past the known end still asks for the whole body, so that
    // a missing file is reported here as it would be by open().
    const bool ranged = position > 0 && (mSize < 0 || position < mSize);
    sendRequest(ranged ? position : 0, ranged, PHASE_OPEN);
    mOpen = true;
    if (position > 0 && !ranged)
        seek((int)position, SM_BEGIN);
}

void HTTPInputStream::closeRequest() {
    mInflater.reset();
    mRequest.reset();
    mRawPosition = 0;
    mRawEnd = -1;
}

void HTTPInputStream::close() {
    closeRequest();
    mOpen = false;
    mAtEnd = false;
}

vfs::detail::HTTPRequest* HTTPInputStream::newRequest(Phase phase) {
    const char* op = phase == PHASE_OPEN ? "open" : "seek";
    const char* method = mData ? vfs::HTTPData::unparse(mData->getMethod()) : "GET";
    std::string path = mPath;
    if (mData && mData->instanceOf(vfs::FormData::TYPE) && !mData->getContentType()) {
        std::string query = static_cast<vfs::FormData*>(mData.get())->encode();
        if (!query.empty())
            path += (path.find('?') == std::string::npos ? "?" : "&") + query;
    }
    std::string error;
    auto* connection = static_cast<vfs::detail::HTTPConnection*>(mConnection);
    vfs::detail::HTTPRequest* request =
        connection ? connection->openRequest(method, path.c_str(), error) : nullptr;
    if (!request)
        throw vfs::HTTPException(0, "HTTPInputStream::%s: could not open %s command for %s (%d)", op, method,
                                 mPath.c_str(), 0);
    return request;
}

void HTTPInputStream::sendRequest(unsigned offset, bool ranged, Phase phase) {
    closeRequest();
    checkHandle();
    const char* op = phase == PHASE_OPEN ? "open" : "seek";
    const char* method = mData ? vfs::HTTPData::unparse(mData->getMethod()) : "GET";
    mRequest.reset(newRequest(phase));
    vfs::detail::HTTPRequest& request = *mRequest;
    if (mData && !request.addHeaders(mData->getRequestHeaders().getRawHeaders()))
        throw IOException("HTTPInputStream: unable to set headers");
    const char* contentType = mData ? mData->getContentType() : nullptr;
    if (contentType && !request.hasHeader("content-type") &&
        !request.addHeaders(std::string("Content-type: ") + contentType + "\r\n"))
        throw IOException("HTTPInputStream: unable to set Content-Type header (%X)", request.getError());
    std::string extra = "Cache-Control: no-cache\r\nPragma: no-cache\r\n";
    if (!request.hasHeader("accept-encoding"))
        extra += "accept-encoding: deflate\r\n";
    if (ranged) {
        char range[64];
        if (mSize > 0)
            snprintf(range, sizeof(range), "Range: bytes=%u-%u\r\n", offset, (unsigned)(mSize - 1));
        else
            snprintf(range, sizeof(range), "Range: bytes=%u-\r\n", offset);
        extra += range;
    }
    if (!request.addHeaders(extra))
        throw IOException("HTTPInputStream: unable to set headers");
    unsigned bodySize = 0;
    const void* body = mData ? mData->_buildContent(bodySize) : nullptr;
    HandleSignal signal(mFS, mIOHandle);
    switch (request.send(body, bodySize, signal)) {
    case vfs::detail::TR_OK:
        break;
    case vfs::detail::TR_CONNECT_TIMEOUT:
        throw ConnectTimeoutException("HTTPInputStream::%s: time out sending %s command for %s", op, method,
                                      mPath.c_str());
    case vfs::detail::TR_READ_TIMEOUT:
        if (phase == PHASE_OPEN)
            throw ConnectTimeoutException("HTTPInputStream::%s: time out sending %s command for %s", op,
                                          method, mPath.c_str());
        throw ReadTimeoutException("HTTPInputStream::%s: time out sending %s command for %s", op, method,
                                   mPath.c_str());
    case vfs::detail::TR_ABORTED:
        throw StreamAbortedException("%s", ABORTED);
    default:
        throw vfs::HTTPException(0, "HTTPInputStream::%s: could not send %s command for %s (%d)", op, method,
                                 mPath.c_str(), request.getError());
    }
    int status = request.getStatus();
    if (status <= 0)
        throw vfs::HTTPException(
            0, "HTTPInputStream::%s: could not get status code after %s command for %s (%d)", op, method,
            mPath.c_str(), request.getError());
    if (mData) {
        mData->getResponseHeaders().clear();
        mData->getResponseHeaders().add(request.getResponseHeaders());
    }
    if (status != 200 && status != 206) {
        if (phase == PHASE_OPEN) {
            if (status == 404)
                throw vfs::FileNotFoundException(mPath.c_str());
            throw vfs::HTTPException(status, "%s", mPath.c_str());
        }
        std::string message = ::core::formatMessagef("seek to %d: %s", (int)offset, mPath.c_str());
        if (status == 404)
            throw vfs::FileNotFoundException(message.c_str());
        throw vfs::HTTPException(status, "%s", message.c_str());
    }
    const char* encoding = request.getResponseHeaders().get("content-encoding");
    bool deflate = encoding && text::StringUtil::compareIgnoreCase(encoding, "deflate") == 0;
    long long length = request.getContentLength();
    if (status == 206) {
        mRawPosition = offset;
        mRawEnd = length >= 0 ? offset + length : -1;
        const char* range = request.getResponseHeaders().get("content-range");
        const char* slash = range ? strchr(range, '/') : nullptr;
        if (!deflate && slash && slash[1] >= '0' && slash[1] <= '9')
            mSize = strtoll(slash + 1, nullptr, 10);
    } else {
        mRawPosition = 0;
        mRawEnd = length;
        if (phase == PHASE_OPEN && !deflate && length >= 0 && mExpectedSize > 0 && length != mExpectedSize)
            logging::Logger::mROOT_LOGGER.warn(
                "HTTPInputStream size changed since file lookup for '%s'! (was %u, now is %u)", mPath.c_str(),
                (unsigned)mExpectedSize, (unsigned)length);
        if (!deflate && length >= 0)
            mSize = length;
    }
    mAtEnd = false;
    if (deflate) {
        mSize = -1; // the inflated size is known once the end was read
        mInflater.reset(new DeflateInputStream(new Body(*this), true));
        mInflater->open(OM_READ | OM_BINARY);
        if (offset > 0)
            mInflater->seek((int)offset, SM_CURRENT);
        mPosition = mInflater->tell();
        return;
    }
    // A server that ignores the range sends the whole body: skip to the offset.
    char scratch[4096];
    while (mRawPosition < offset) {
        unsigned want = (unsigned)std::min<unsigned long long>(sizeof(scratch), offset - mRawPosition);
        if (rawRead(scratch, want) < want)
            break;
    }
    mPosition = mRawPosition;
}

unsigned HTTPInputStream::rawRead(void* buffer, unsigned size) {
    if (!mRequest)
        return 0;
    if (mRawEnd >= 0)
        size = (unsigned)std::min<long long>(size, mRawEnd - (long long)mRawPosition);
    if (size == 0)
        return 0;
    HandleSignal signal(mFS, mIOHandle);
    unsigned got = 0;
    switch (mRequest->read(buffer, size, got, signal)) {
    case vfs::detail::TR_OK:
        break;
    case vfs::detail::TR_READ_TIMEOUT:
    case vfs::detail::TR_CONNECT_TIMEOUT:
        mError = true;
        throw ReadTimeoutException("HTTPInputStream::read: time out reading %d bytes from %s", (int)size,
                                   mPath.c_str());
    case vfs::detail::TR_ABORTED:
        throw StreamAbortedException("%s", ABORTED);
    default:
        mError = true;
        throw IOException("HTTPInputStream::read: error reading %d bytes from %s (%d)", (int)size,
                          mPath.c_str(), mRequest->getError());
    }
    mRawPosition += got;
    if (got < size && mRawEnd >= 0) {
        // The body ended before its announced length: the server went away.
        mError = true;
        throw IOException("HTTPInputStream::read: error reading %d bytes from %s (%d)", (int)size,
                          mPath.c_str(), mRequest->getError());
    }
    return got;
}

void HTTPInputStream::seek(int offset, ESeekMode mode) {
    if (!mOpen)
        throw IOException("HTTPInputStream: Stream not opened");
    checkHandle();
    long long target;
    switch (mode) {
    case SM_BEGIN:
        target = offset;
        break;
    case SM_CURRENT:
        target = (long long)mPosition + offset;
        break;
    case SM_END:
        if (mSize < 0)
            throw IOException("HTTPInputStream::seek: size of %s unknown, cannot seek from the end",
                              mPath.c_str());
        target = mSize - offset;
        break;
    default:
        throw IOException("HTTPInputStream::seek: invalid seek mode %d", (int)mode);
    }
    if (target < 0 || target > 0xFFFFFFFFll)
        throw IOException("HTTPInputStream::seek: invalid position %lld for %s", target, mPath.c_str());
    if (mInflater) {
        // Inflated bodies: forward by inflating, backwards from the start.
        if (target < (long long)mPosition) {
            sendRequest((unsigned)target, false, PHASE_SEEK);
        } else if (target > (long long)mPosition) {
            mInflater->seek((int)(target - mPosition), SM_CURRENT);
            mPosition = mInflater->tell();
        }
        if (mPosition < target) {
            mAtEnd = true;
            mSize = mPosition;
        }
        return;
    }
    if (target == (long long)mPosition && mRequest)
        return;
    if (mSize >= 0 && target >= mSize) {
        // Nothing left to fetch: no request, reads return 0.
        closeRequest();
        mPosition = (unsigned)mSize;
        mAtEnd = true;
        return;
    }
    sendRequest((unsigned)target, true, PHASE_SEEK);
}

unsigned HTTPInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw IOException("HTTPInputStream: Stream not opened");
    unsigned long long want64 = (unsigned long long)size * count;
    unsigned want = want64 > UINT_MAX ? UINT_MAX : (unsigned)want64;
    if (want == 0 || mAtEnd)
        return 0;
    checkHandle();
    char* out = static_cast<char*>(buffer);
    unsigned got = 0;
    if (mInflater) {
        while (got < want) {
            unsigned n = mInflater->read(out + got, 1, want - got);
            if (n == 0)
                break;
            got += n;
        }
        if (mInflater->hasError()) {
            mError = true;
            throw IOException("HTTPInputStream::read: error reading %d bytes from %s (%d)", (int)want,
                              mPath.c_str(), -3);
        }
        mPosition += got;
        if (got < want) {
            mAtEnd = true;
            mSize = mPosition;
        }
        return got;
    }
    got = rawRead(out, want);
    mPosition += got;
    if (got < want || (mSize >= 0 && mPosition >= mSize))
        mAtEnd = true;
    return got;
}

unsigned HTTPInputStream::available() const {
    if (!mOpen)
        throw IOException("HTTPInputStream: Couldn't query data available");
    if (mAtEnd)
        return 0;
    if (mInflater)
        return mInflater->available();
    return mRequest ? mRequest->available() : 0;
}

bool HTTPInputStream::eof() const {
    if (!mOpen)
        return true;
    if (mAtEnd)
        return true;
    if (mInflater)
        return mInflater->eof();
    if (mSize >= 0)
        return mPosition >= mSize;
    return !mRequest || mRequest->finished();
}

unsigned HTTPInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("HTTPInputStream::readLine not yet implemented");
}

std::istream* HTTPInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("HTTPInputStream::getSTLStream()");
}

} // namespace stream
} // namespace tarso
