#include <tmain/stream/GZIPInputStream.h>

#include <climits>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/IOException.h>
#include <zlib.h>

namespace tarso {
namespace stream {

namespace {
const unsigned char FLAG_HCRC = 0x02;
const unsigned char FLAG_EXTRA = 0x04;
const unsigned char FLAG_NAME = 0x08;
const unsigned char FLAG_COMMENT = 0x10;
const unsigned char FLAG_RESERVED = 0xE0;
} // namespace

GZIPInputStream::GZIPInputStream(InputStream* source, bool sourceOwned, unsigned inputBufferSize,
                                 unsigned outputBufferSize)
    : DeflateInputStream(source, sourceOwned, inputBufferSize, outputBufferSize), mCrc(0), mDone(false) {
    mName = "GZIPInputStream";
}

GZIPInputStream::~GZIPInputStream() {}

void GZIPInputStream::open(EOpenMode mode) {
    DeflateInputStream::open(mode);
    mDone = false;
    mDeferred.reset();
    try {
        int rc = setWindowBits(-15);
        if (rc != Z_OK)
            throw IOException("Unable to open gzip stream for input: %s (%X)!", zError(rc), (unsigned)rc);
        checkHeader();
    } catch (...) {
        // Leave the stream closed; the source stays as it is.
        endInflater();
        mOpen = false;
        setDataError();
        throw;
    }
    mCrc = 0;
}

void GZIPInputStream::close() {
    DeflateInputStream::close();
    mDeferred.reset();
    mDone = false;
}

void GZIPInputStream::onRestart() {
    mDeferred.reset();
    mDone = false;
    checkHeader();
    mCrc = 0;
}

bool GZIPInputStream::eof() const {
    // A pending header error must still reach the caller.
    return !mDeferred && DeflateInputStream::eof();
}

unsigned GZIPInputStream::readRaw(void* buffer, unsigned size) {
    unsigned char* out = static_cast<unsigned char*>(buffer);
    unsigned done = 0;
    while (done < size) {
        if (mZ->avail_in == 0) {
            unsigned got = mSource->read(mInputBuffer.get(), 1, mInputBufferSize);
            if (got == 0)
                break;
            mZ->next_in = mInputBuffer.get();
            mZ->avail_in = got;
        }
        unsigned n = size - done < mZ->avail_in ? size - done : mZ->avail_in;
        memcpy(out + done, mZ->next_in, n);
        mZ->next_in += n;
        mZ->avail_in -= n;
        done += n;
    }
    return done;
}

bool GZIPInputStream::eofRaw() {
    if (mZ->avail_in > 0)
        return false;
    if (mSource->eof())
        return true;
    // Some sources learn of their end only by reading.
    unsigned got = mSource->read(mInputBuffer.get(), 1, mInputBufferSize);
    mZ->next_in = mInputBuffer.get();
    mZ->avail_in = got;
    return got == 0;
}

bool GZIPInputStream::skipRaw(unsigned count) {
    while (count > 0) {
        unsigned n = readRaw(mScratch, count < SCRATCH_SIZE ? count : SCRATCH_SIZE);
        if (n == 0)
            return false;
        count -= n;
    }
    return true;
}

void GZIPInputStream::skipString() {
    for (;;) {
        if (mZ->avail_in == 0 && eofRaw())
            return;
        const void* zero = memchr(mZ->next_in, 0, mZ->avail_in);
        unsigned n = zero ? (unsigned)(static_cast<const Bytef*>(zero) - mZ->next_in) + 1 : mZ->avail_in;
        mZ->next_in += n;
        mZ->avail_in -= n;
        if (zero)
            return;
    }
}

void GZIPInputStream::checkHeader() {
    unsigned char magic[2];
    if (readRaw(magic, 2) < 2)
        throw IOException("Invalid gzip stream (unable to read magic number)");
    if (magic[0] != 0x1F || magic[1] != 0x8B)
        throw IOException("Invalid gzip stream (wrong magic number %2X%2X)", magic[0], magic[1]);
    unsigned char method = 0, flags = 0;
    if (readRaw(&method, 1) != 1)
        throw IOException("Invalid gzip stream (unable to read method)");
    if (readRaw(&flags, 1) != 1)
        throw IOException("Invalid gzip stream (unable to read flags)");
    // Reserved flag bits are reported with the method text, as always.
    if (method != Z_DEFLATED || (flags & FLAG_RESERVED) != 0)
        throw IOException("Invalid gzip stream (wrong method %x)", method);
    if (!skipRaw(6))
        throw IOException("Invalid zgip stream (unable to skip xflags and OS code)");
    if (flags & FLAG_EXTRA) {
        unsigned char len[2] = {0, 0};
        readRaw(len, 2);
        skipRaw(len[0] | (unsigned)len[1] << 8);
    }
    if (flags & FLAG_NAME)
        skipString();
    if (flags & FLAG_COMMENT)
        skipString();
    if ((flags & FLAG_HCRC) && !skipRaw(2))
        throw IOException("Invalid gzip stream (unable to skip HEAD_CRC)");
    if (eofRaw())
        throw IOException("Invalid gzip stream: eof met right after header");
}

bool GZIPInputStream::finishMember() {
    unsigned char trailer[4];
    if (readRaw(trailer, 4) < 4) {
        mDone = true;
        setTruncated();
        throw IOException("gzip error: unable to read CRC");
    }
    unsigned stored =
        trailer[0] | (unsigned)trailer[1] << 8 | (unsigned)trailer[2] << 16 | (unsigned)trailer[3] << 24;
    if (stored != (unsigned)mCrc) {
        mDone = true;
        setDataError();
        throw IOException("gzip error: CRC missmatch (%X != %X)", stored, (unsigned)mCrc);
    }
    // A missing or partial length field ends the data without an exception,
    // but the file was cut all the same.
    if (eofRaw() || readRaw(trailer, 4) < 4) {
        setTruncated();
        return false;
    }
    return !eofRaw(); // the length field's value is not checked
}

unsigned GZIPInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw ::core::IllegalStateException("gzip stream not opened");
    if (mDeferred) {
        std::unique_ptr<::core::Exception> error(std::move(mDeferred));
        error->rethrow();
    }
    unsigned long long requested = (unsigned long long)size * count;
    const unsigned want = requested > UINT_MAX ? UINT_MAX : (unsigned)requested;
    unsigned char* out = static_cast<unsigned char*>(buffer);
    unsigned total = 0;
    while (!mDone) {
        unsigned got = DeflateInputStream::read(out + total, 1, want - total);
        if (got > 0)
            mCrc = crc32(mCrc, out + total, got);
        total += got;
        if (!streamFinished())
            break;
        if (!finishMember()) {
            mDone = true;
            break;
        }
        // Another member follows.
        try {
            checkHeader();
        } catch (const IOException& e) {
            mDone = true;
            setDataError();
            if (total == 0)
                throw;
            mDeferred.reset(e.clone());
            break;
        }
        resetInflater();
        mCrc = 0;
        if (total == want)
            break;
    }
    return total;
}

} // namespace stream
} // namespace tarso
