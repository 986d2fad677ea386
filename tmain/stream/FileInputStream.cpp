#include <tmain/stream/FileInputStream.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/IOException.h>

namespace tarso {
namespace stream {

namespace {
typedef std::char_traits<char> Traits;
} // namespace

FileInputStream::FileInputStream(const char* fileName, unsigned bufferSize)
    : mFileName(fileName ? fileName : ""), mBufferSize(bufferSize), mFileSize(0), mPosition(0),
      mSeekable(false), mShortRead(false), mText(false), mError(false), mSTLHandedOut(false) {}

FileInputStream::~FileInputStream() {
    if (mStream)
        mStream->close();
}

void FileInputStream::open(EOpenMode mode) {
    if (isOpen())
        throw ::core::IllegalStateException("File '%s' is already open", mFileName.c_str());
    if (!mStream)
        mStream.reset(new std::ifstream());
    mStream->clear();
    // The buffer must be installed before the file is opened.
    if (mBufferSize > 0 && !mBuffer)
        mBuffer.reset(new char[mBufferSize]);
    mStream->rdbuf()->pubsetbuf(mBuffer.get(), mBufferSize);

    // Always for reading, never for writing, whatever else was asked. The
    // file itself is always read as bytes: text mode is this stream's own
    // filter (processText), so positions count the file's bytes and a
    // Ctrl-Z is data on every system, where a C runtime's text mode would
    // translate line ends and stop at it.
    std::ios_base::openmode om =
        (stdOpenMode(mode) & ~std::ios_base::out) | std::ios_base::in | std::ios_base::binary;
    // A directory opens fine on POSIX but is no file to read (nor does it open
    // on Windows).
    std::error_code ec;
    if (!mFileName.empty() && !std::filesystem::is_directory(mFileName, ec))
        mStream->open(mFileName, om);
    if (!mStream->is_open())
        throw IOException("Unable to open file '%s' for input", mFileName.c_str());

    std::filebuf* sb = mStream->rdbuf();
    std::streamoff here = sb->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    std::streamoff end =
        here < 0 ? -1 : (std::streamoff)sb->pubseekoff(0, std::ios_base::end, std::ios_base::in);
    mSeekable = end >= 0 && sb->pubseekpos(here, std::ios_base::in) == std::streampos(here);
    mFileSize = !mSeekable ? 0 : end > (std::streamoff)UINT_MAX ? UINT_MAX : (unsigned)end;
    mPosition = mSeekable ? (unsigned long long)here : 0;
    mShortRead = false;
    mText = (mode & OM_BINARY) == 0;
    mError = false;
}

void FileInputStream::close() {
    if (mStream && mStream->is_open())
        mStream->close();
    mPosition = 0;
    mShortRead = false;
}

bool FileInputStream::isOpen() const {
    return mStream && mStream->is_open();
}

void FileInputStream::checkOpen() const {
    if (!isOpen())
        throw ::core::IllegalStateException("File '%s' not yet opened", mFileName.c_str());
}

unsigned long long FileInputStream::position() const {
    if (!mSTLHandedOut)
        return mPosition;
    std::streamoff p = mStream->rdbuf()->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    return p < 0 ? mPosition : (unsigned long long)p;
}

void FileInputStream::seek(int offset, ESeekMode mode) {
    checkOpen();
    std::streamoff off;
    std::ios_base::seekdir dir;
    stdSeekArgs(offset, mode, "FileInputStream", off, dir);
    std::streamoff p = mStream->rdbuf()->pubseekoff(off, dir, std::ios_base::in);
    if (p < 0) {
        mError = true;
        throw IOException("Unable to seek in file '%s'", mFileName.c_str());
    }
    mStream->clear();
    mPosition = (unsigned long long)p;
    mShortRead = false;
}

unsigned FileInputStream::tell() const {
    if (!isOpen())
        return 0;
    unsigned long long p = position();
    return p > UINT_MAX ? UINT_MAX : (unsigned)p;
}

unsigned FileInputStream::available() const {
    if (!isOpen())
        return 0;
    if (!mSeekable) {
        std::streamsize n = mShortRead ? 0 : mStream->rdbuf()->in_avail();
        return n <= 0 ? 0 : n > (std::streamsize)UINT_MAX ? UINT_MAX : (unsigned)n;
    }
    unsigned long long p = position();
    return p >= mFileSize ? 0 : (unsigned)(mFileSize - p);
}

bool FileInputStream::eof() const {
    if (!isOpen())
        return true;
    if (mSTLHandedOut && mStream->eof())
        return true;
    return mShortRead || (mSeekable && position() >= mFileSize);
}

unsigned FileInputStream::read(void* buffer, unsigned size, unsigned count) {
    checkOpen();
    unsigned long long wanted64 = (unsigned long long)size * count;
    unsigned wanted = wanted64 > UINT_MAX ? UINT_MAX : (unsigned)wanted64;
    if (wanted == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("FileInputStream::read: no buffer");
    if (mSTLHandedOut)
        mPosition = position();
    char* out = static_cast<char*>(buffer);
    unsigned delivered = 0;
    try {
        do {
            unsigned ask = wanted - delivered;
            unsigned got = (unsigned)mStream->rdbuf()->sgetn(out + delivered, ask);
            mPosition += got;
            mShortRead = got < ask;
            delivered += mText ? processText(out + delivered, got) : got;
            // In text mode dropped carriage returns leave room for more.
        } while (mText && !mShortRead && delivered < wanted);
    } catch (const std::exception&) {
        mError = true;
        throw IOException("Stream reading error!");
    }
    return delivered;
}

unsigned FileInputStream::readLine(char* buffer, int capacity, char delimiter) {
    checkOpen();
    if (capacity <= 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("FileInputStream::readLine: no buffer");
    if (mSTLHandedOut)
        mPosition = position();
    std::filebuf* sb = mStream->rdbuf();
    const unsigned room = (unsigned)capacity - 1;
    const Traits::int_type delim = Traits::to_int_type(delimiter);
    unsigned stored = 0;
    try {
        while (stored < room) {
            Traits::int_type c = sb->sbumpc();
            if (Traits::eq_int_type(c, Traits::eof())) {
                mShortRead = true;
                break;
            }
            ++mPosition;
            if (Traits::eq_int_type(c, delim))
                break;
            if (mText && c == '\r')
                continue;
            buffer[stored++] = Traits::to_char_type(c);
        }
    } catch (const std::exception&) {
        mError = true;
        buffer[stored] = '\0';
        throw IOException("Stream reading error!");
    }
    buffer[stored] = '\0';
    return stored;
}

std::istream* FileInputStream::getSTLStream() {
    if (!mStream)
        mStream.reset(new std::ifstream());
    mSTLHandedOut = true;
    return mStream.get();
}

unsigned FileInputStream::processText(char* buffer, unsigned length) {
    char* cr = static_cast<char*>(memchr(buffer, '\r', length));
    if (!cr)
        return length;
    char* out = cr;
    for (const char* in = cr; in < buffer + length; ++in)
        if (*in != '\r')
            *out++ = *in;
    return (unsigned)(out - buffer);
}

} // namespace stream
} // namespace tarso
