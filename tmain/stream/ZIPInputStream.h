#pragma once
#include <memory>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/ZIPEntry.h>

namespace tarso {
namespace vfs {
class ZIPFileSystem;
}
namespace stream {

/// Reads one entry of a ZIPFileSystem's archive. Stored and deflated entries
/// are read; encrypted ones and other methods are refused at open. Every
/// stream inflates with its own state and only borrows the archive handle
/// (under the file system's syncBegin/syncEnd) to fetch compressed bytes, so
/// streams read in turns or from several threads never re-inflate an entry
/// from its start. When an entry ends its byte count and CRC are checked and
/// the read that reaches the end throws on a mismatch.
///
/// Seeking: stored entries seek directly; deflated ones only forward, a seek
/// back starts over from the entry's beginning and skips forward.
class TMAIN_API ZIPInputStream : public InputStream {
public:
    /// `archive` is the handle the entry was read from; a stream opened after
    /// the archive was closed or reopened fails with "Error opening ZIPInputStream".
    ZIPInputStream(const vfs::ZIPEntry& entry, const void* archive, vfs::ZIPFileSystem* fs);
    ~ZIPInputStream() override;
    ZIPInputStream(const ZIPInputStream&) = delete;
    ZIPInputStream& operator=(const ZIPInputStream&) = delete;

    /// Throws IOException "ZIPinputStream already opened" when open and
    /// "Error opening ZIPInputStream" (with the reason as cause) on failure.
    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override { return mOpen; }
    /// SM_END is refused on deflated entries with core::UnsupportedOperationException
    /// "Seek from end not supported for this ZIPInputStream"; a position
    /// outside the entry throws IOException "Unable to seek to ZIP stream position %d".
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return (unsigned)mPosition; }
    bool hasError() const override { return mError; }

    unsigned available() const override;
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Throws core::UnsupportedOperationException "ZIPInputStream::readLine not yet implemented".
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override;
    /// Throws core::UnsupportedOperationException "ZIPInputStream::getSTLStream()".
    std::istream* getSTLStream() override;

    const vfs::ZIPEntry& getEntry() const { return mEntry; }

private:
    struct Inflater;
    /// Back to the entry's first byte.
    void restart();
    /// Fills the input buffer from the archive; returns the bytes fetched.
    /// A short fetch (the archive ends early) throws.
    unsigned fetch();
    /// Produces up to `size` bytes of entry data.
    unsigned produce(unsigned char* out, unsigned size);
    /// Checks count and CRC once the entry's data ended.
    void finish();
    [[noreturn]] void fail(const char* format, ...);

    vfs::ZIPEntry mEntry;
    const void* mArchive;
    vfs::ZIPFileSystem* mFS;
    ::core::SmartPtr<vfs::ZIPFileSystem> mHeld;
    std::unique_ptr<Inflater> mInflater;
    std::unique_ptr<unsigned char[]> mInput;
    unsigned mCapacity; ///< size of the input buffer
    unsigned mInputSize;
    unsigned mInputPos; ///< next unread input byte (stored entries)
    unsigned long long mDataStart;
    unsigned long long mRawRead;  ///< compressed bytes fetched so far
    unsigned long long mPosition; ///< uncompressed bytes delivered
    unsigned long mCRC;
    bool mCRCValid; ///< false after a stored entry was entered elsewhere than at 0
    bool mOpen;
    bool mEnded;
    bool mError;
};

} // namespace stream
} // namespace tarso
