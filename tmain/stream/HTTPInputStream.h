#pragma once
#include <memory>
#include <string>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace vfs {
class HTTPFileSystem;
class HTTPData;
namespace detail {
class HTTPRequest;
}
} // namespace vfs

namespace stream {

class DeflateInputStream;

/// The body of a file of an HTTPFileSystem. open() sends the request (a GET,
/// or what the file's HTTPData describes); seek() sends it again with a
/// "Range" header; reads wait for the full request or the end of the body,
/// each wait limited by the file system's read timeout. A body sent with
/// "content-encoding: deflate" is inflated; tell() and the end then count
/// inflated bytes, and seeks move by inflating (backwards: from the start).
/// The file system must outlive the stream; abortIO() and stopIO() on it make
/// every operation of the stream throw StreamAbortedException.
class TMAIN_API HTTPInputStream : public InputStream {
public:
    /// `connection` is the file system's transport connection, `path` the
    /// path on the server; `expectedSize` is the size found at lookup (0 or
    /// negative when unknown).
    HTTPInputStream(void* connection, const char* path, vfs::HTTPFileSystem* fs, long expectedSize,
                    vfs::HTTPData* data);
    ~HTTPInputStream() override;
    HTTPInputStream(const HTTPInputStream&) = delete;
    HTTPInputStream& operator=(const HTTPInputStream&) = delete;

    using InputStream::read;

    void open(EOpenMode mode) override;
    /// Opens with the first request starting at `position` (a ranged request
    /// when it is not 0), so that a reader that starts mid-file costs one
    /// request, and the server sends nothing before the position.
    void openAt(EOpenMode mode, unsigned position);
    void close() override;
    bool isOpen() const override { return mOpen; }
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return mPosition; }
    bool hasError() const override { return mError; }
    /// Bytes at hand without waiting on the network.
    unsigned available() const override;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Unsupported: "HTTPInputStream::readLine not yet implemented".
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override;
    /// Unsupported.
    std::istream* getSTLStream() override;

    /// The size of the body when known (from the response, else from the
    /// lookup), -1 otherwise. For an inflated body, the size once the end was read.
    long long getSize() const { return mSize; }
    bool isDeflated() const { return mInflater != nullptr; }

private:
    class Body;
    friend class Body;
    enum Phase { PHASE_OPEN, PHASE_SEEK };
    /// Sends the request, starting at `offset` (with a range when offset > 0
    /// or `ranged`); throws on failure statuses.
    void sendRequest(unsigned offset, bool ranged, Phase phase);
    void closeRequest();
    void checkHandle() const;
    unsigned rawRead(void* buffer, unsigned size);
    std::string describe() const;

    vfs::detail::HTTPRequest* newRequest(Phase phase);

    void* mConnection;
    std::string mPath;
    vfs::HTTPFileSystem* mFS;
    long mExpectedSize;
    ::core::SmartPtr<vfs::HTTPData> mData;
    std::unique_ptr<vfs::detail::HTTPRequest> mRequest;
    std::unique_ptr<DeflateInputStream> mInflater;
    int mIOHandle;
    bool mOpen;
    bool mError;
    bool mAtEnd;
    unsigned mPosition;    // bytes delivered (inflated bytes for a deflated body)
    unsigned mRawPosition; // body bytes received (compressed for a deflated body)
    long long mRawEnd;     // where this response's body ends, -1 when unknown
    long long mSize;
};

} // namespace stream
} // namespace tarso
