#include <tmain/stream/FileOutputStream.h>

#include <climits>
#include <filesystem>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/IOException.h>

namespace tarso {
namespace stream {

FileOutputStream::FileOutputStream(const std::string& fileName)
    : mFileName(fileName), mFileSize(0), mDirection(DIR_NONE), mError(false), mSTLHandedOut(false) {}

FileOutputStream::~FileOutputStream() {
    try {
        close();
    } catch (const ::core::Exception& e) {
        ::logging::Logger::mROOT_LOGGER.error("FileOutputStream: closing '%s' failed", &e, mFileName.c_str());
    }
}

void FileOutputStream::open(EOpenMode mode) {
    if (isOpen())
        throw ::core::IllegalStateException("File '%s' is already opened", mFileName.c_str());
    if (!mStream)
        mStream.reset(new std::fstream());
    mStream->clear();
    std::ios_base::openmode om = stdOpenMode(mode);
    std::error_code ec;
    if (!mFileName.empty() && !std::filesystem::is_directory(mFileName, ec))
        mStream->open(mFileName, om);
    if (!mStream->is_open())
        throw IOException("Unable to open file '%s' for output", mFileName.c_str());

    std::filebuf* sb = mStream->rdbuf();
    std::streamoff here = sb->pubseekoff(0, std::ios_base::cur);
    std::streamoff end = here < 0 ? -1 : (std::streamoff)sb->pubseekoff(0, std::ios_base::end);
    if (here >= 0)
        sb->pubseekpos(here);
    mFileSize = end < 0 ? 0 : end > (std::streamoff)UINT_MAX ? UINT_MAX : (unsigned)end;
    mDirection = DIR_NONE;
    mError = false;
}

void FileOutputStream::close() {
    if (!isOpen())
        return;
    bool ok = mStream->rdbuf()->close() != nullptr;
    mStream->clear();
    mDirection = DIR_NONE;
    if (!ok) {
        mError = true;
        throw IOException("Unable to write file '%s'", mFileName.c_str());
    }
}

bool FileOutputStream::isOpen() const {
    return mStream && mStream->is_open();
}

void FileOutputStream::checkWritable() const {
    if (!isOpen())
        throw ::core::IllegalStateException("Output stream for file '%s' not yet opened", mFileName.c_str());
}

void FileOutputStream::turnTo(EDirection direction) {
    // The standard stream may have been used in between, so its direction is
    // unknown once handed out.
    if (mDirection != direction || mSTLHandedOut) {
        if (mDirection != DIR_NONE || mSTLHandedOut) {
            std::filebuf* sb = mStream->rdbuf();
            std::streampos here = sb->pubseekoff(0, std::ios_base::cur);
            if (here != std::streampos(-1))
                sb->pubseekpos(here);
        }
        mDirection = direction;
    }
}

void FileOutputStream::seek(int offset, ESeekMode mode) {
    checkWritable();
    std::streamoff off;
    std::ios_base::seekdir dir;
    stdSeekArgs(offset, mode, "FileOutputStream", off, dir);
    std::streamoff p = mStream->rdbuf()->pubseekoff(off, dir);
    if (p < 0) {
        mError = true;
        throw IOException("Unable to seek in file '%s'", mFileName.c_str());
    }
    mStream->clear();
    mDirection = DIR_NONE;
}

unsigned FileOutputStream::tell() const {
    if (!isOpen())
        return 0;
    std::streamoff p = mStream->rdbuf()->pubseekoff(0, std::ios_base::cur);
    return p < 0 ? 0 : p > (std::streamoff)UINT_MAX ? UINT_MAX : (unsigned)p;
}

unsigned FileOutputStream::write(const void* buffer, unsigned size, unsigned count) {
    checkWritable();
    unsigned long long bytes64 = (unsigned long long)size * count;
    const unsigned bytes = bytes64 > UINT_MAX ? UINT_MAX : (unsigned)bytes64;
    if (bytes == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("FileOutputStream::write: no buffer");
    turnTo(DIR_WRITE);
    std::streamsize n;
    try {
        n = mStream->rdbuf()->sputn(static_cast<const char*>(buffer), bytes);
    } catch (const std::exception&) {
        n = 0;
    }
    if (n < (std::streamsize)bytes)
        mError = true;
    return n < 0 ? 0 : (unsigned)n;
}

void FileOutputStream::flush() {
    checkWritable();
    if (mStream->rdbuf()->pubsync() != 0) {
        mError = true;
        throw IOException("Unable to write file '%s'", mFileName.c_str());
    }
}

std::ostream* FileOutputStream::getSTLStream() {
    if (!mStream)
        mStream.reset(new std::fstream());
    mSTLHandedOut = true;
    return mStream.get();
}

unsigned FileOutputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!isOpen())
        throw ::core::IllegalStateException("File '%s' not yet opened", mFileName.c_str());
    unsigned long long wanted64 = (unsigned long long)size * count;
    const unsigned wanted = wanted64 > UINT_MAX ? UINT_MAX : (unsigned)wanted64;
    if (wanted == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("FileOutputStream::read: no buffer");
    turnTo(DIR_READ);
    try {
        return (unsigned)mStream->rdbuf()->sgetn(static_cast<char*>(buffer), wanted);
    } catch (const std::exception&) {
        mError = true;
        throw IOException("Stream reading error!");
    }
}

} // namespace stream
} // namespace tarso
