#pragma once
#include <ios>
#include <tmain/foundation/Future.h>
#include <tmain/platform/Platform.h>
#include <vector>

namespace tarso {
namespace stream {

/// Base of every byte source and sink: open modes, position, byte order and
/// bookmarks. Not reference counted: a stream belongs to whoever opened it.
class TMAIN_API Stream {
public:
    enum ESeekMode { SM_BEGIN = 1, SM_CURRENT = 2, SM_END = 3 };

    /// Bit set with the values of the standard open modes.
    enum EOpenMode {
        OM_READ = 0x01,
        OM_WRITE = 0x02,
        OM_ATEND = 0x04,
        OM_APPEND = 0x08,
        OM_TRUNCATE = 0x10,
        OM_BINARY = 0x20,
    };

    virtual ~Stream();

    virtual void open(EOpenMode mode) = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    /// Default: throws core::UnsupportedOperationException "Stream::tell() not supported".
    virtual void seek(int offset, ESeekMode mode);
    /// Default: throws core::UnsupportedOperationException "Stream::tell() not supported".
    virtual unsigned tell() const;
    virtual bool hasError() const = 0;

    platform::Endianness getEndianness() const { return mEndianness; }
    void setEndianness(platform::Endianness e) { mEndianness = e; }
    /// True when multi-byte integers are swapped (big-endian stream).
    bool swaps() const { return mEndianness != platform::ENDIAN_LITTLE; }

    /// Seeks to an absolute position of a 32-bit unsigned range: positions
    /// past 2 GiB, which an int offset cannot carry, go in two steps.
    void seekTo(unsigned position);

    /// Pushes tell() on the bookmark stack.
    void bookMark();
    /// Pops the last bookmark and seeks to it; throws core::IllegalStateException
    /// "Cannot rewind. No bookmarks defined yet." without one.
    void rewind();
    unsigned getBookmarkCount() const { return (unsigned)mBookmarks.size(); }

    /// Opens the stream on a thread of the stream I/O pool.
    ::core::Future<void> openAsync(EOpenMode mode);

protected:
    explicit Stream(platform::Endianness e = platform::ENDIAN_LITTLE) : mEndianness(e) {}

    /// The position a seek aims at, in 64 bits (SM_END counts back from
    /// `end`); an unknown mode throws core::IllegalArgumentException
    /// "<who>::seek: invalid seek mode %d".
    static long long seekTarget(int offset, ESeekMode mode, unsigned long long position,
                                unsigned long long end, const char* who);
    /// The standard open mode with the same bits (read, write, at end,
    /// append, truncate, binary).
    static std::ios_base::openmode stdOpenMode(EOpenMode mode);
    /// The same seek as arguments of a standard stream buffer.
    static void stdSeekArgs(int offset, ESeekMode mode, const char* who, std::streamoff& off,
                            std::ios_base::seekdir& dir);
    Stream(const Stream&) = default;
    Stream& operator=(const Stream&) = default;

private:
    platform::Endianness mEndianness;
    std::vector<unsigned> mBookmarks;
};

inline Stream::EOpenMode operator|(Stream::EOpenMode a, Stream::EOpenMode b) {
    return (Stream::EOpenMode)((unsigned)a | (unsigned)b);
}
inline Stream::EOpenMode operator|(Stream::EOpenMode a, unsigned b) {
    return (Stream::EOpenMode)((unsigned)a | b);
}

} // namespace stream
} // namespace tarso
