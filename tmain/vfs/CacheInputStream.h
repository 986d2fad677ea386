#pragma once
#include <memory>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/STLInputStream.h>

namespace tarso {
namespace vfs {
class CacheFile;
class SharedCacheInfo;
} // namespace vfs

namespace stream {

/// Reads a file being cached: present ranges come from the local data file,
/// missing ones are fetched from the source once, written into the data file
/// and recorded in the map. Keeps its CacheFile alive.
class TMAIN_API CacheInputStream : public FileInputStream {
public:
    explicit CacheInputStream(vfs::CacheFile* file);
    ~CacheInputStream() override;

    using InputStream::read;
    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override { return mOpen; }
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return mPosition; }
    bool hasError() const override { return mError; }
    unsigned available() const override;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override { return mPosition >= mFileSize; }
    std::istream* getSTLStream() override;

private:
    /// Reads up to `length` source bytes at `position` into `target` and
    /// stores them in the cache, also when the source fails midway.
    unsigned fetch(unsigned position, unsigned char* target, unsigned length);

    ::core::SmartPtr<vfs::CacheFile> mFile;
    ::core::SmartPtr<vfs::SharedCacheInfo> mInfo;
    std::unique_ptr<InputStream> mSourceStream;
    unsigned mPosition;
    unsigned mSourcePosition;
    unsigned mFileSize;
    bool mOpen;
    bool mError;
    std::unique_ptr<STLInputStreamBuffer> mSTLBuffer;
    std::unique_ptr<std::istream> mSTLStream;
};

} // namespace stream
} // namespace tarso
