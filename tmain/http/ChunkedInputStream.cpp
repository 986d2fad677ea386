#include <tmain/http/ChunkedInputStream.h>

#include <cctype>
#include <climits>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/http/HTTPException.h>

namespace tarso {
namespace http {

namespace {
/// Reads exactly n bytes unless the source ends first; returns what it got.
unsigned readFully(tarso::stream::InputStream* source, char* out, unsigned n) {
    unsigned got = 0;
    while (got < n) {
        unsigned r = source->read(out + got, 1, n - got);
        if (r == 0)
            break;
        got += r;
    }
    return got;
}
} // namespace

ChunkedInputStream::ChunkedInputStream(tarso::stream::InputStream* source, bool ownsSource)
    : mOpen(source && source->isOpen()), mSource(source), mSize(0), mPosition(0), mOwnsSource(ownsSource) {
    mLine[0] = 0;
    if (!source)
        throw ::core::IllegalArgumentException("ChunkedInputStream: no source stream");
    try {
        readChunkHeader();
    } catch (...) {
        if (mOwnsSource)
            delete mSource;
        throw;
    }
}

ChunkedInputStream::~ChunkedInputStream() {
    if (mOwnsSource)
        delete mSource;
}

void ChunkedInputStream::readChunkHeader() {
    mPosition = 0;
    mSource->readLine(mLine, (int)sizeof(mLine), '\n');
    if (const char* ext = strchr(mLine, ';'))
        logging::Logger::mROOT_LOGGER.info("Ignoring unsupported chunk extension: %s", ext + 1);
    // Hexadecimal as "%x" reads it, 0 when nothing can be read. A size beyond
    // 32 bits cannot be honoured and is refused rather than wrapped.
    const char* p = mLine;
    while (*p == ' ' || *p == '\t')
        ++p;
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && isxdigit((unsigned char)p[2]))
        p += 2;
    unsigned long long size = 0;
    for (; isxdigit((unsigned char)*p); ++p) {
        size = size * 16 + (unsigned)(isdigit((unsigned char)*p) ? *p - '0' : (tolower(*p) - 'a' + 10));
        if (size > UINT_MAX) {
            mLine[strcspn(mLine, "\r\n; \t")] = 0;
            throw HTTPException("Invalid chunk size (%s)", mLine);
        }
    }
    mSize = (unsigned)size;
    if (mSize == 0)
        readTrailer();
}

void ChunkedInputStream::readTrailer() {
    // Trailer fields up to the empty line; a source that ends stops it too.
    for (;;) {
        unsigned n = mSource->readLine(mLine, (int)sizeof(mLine), '\n');
        if (n == 0 || mLine[0] == '\r' || mLine[1] == '\n')
            break;
    }
}

void ChunkedInputStream::open(EOpenMode mode) {
    if (!mSource->isOpen())
        mSource->open(mode);
    mOpen = true;
}

bool ChunkedInputStream::hasError() const {
    return mSource->hasError();
}

unsigned ChunkedInputStream::available() const {
    return mOpen ? mSize - mPosition : 0;
}

unsigned ChunkedInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw ::core::IllegalStateException("ChunkedInputStream is closed");
    unsigned long long wanted = (unsigned long long)size * count;
    unsigned rest = mSize - mPosition;
    if (wanted > rest)
        wanted = rest;
    if (wanted == 0)
        return 0;
    unsigned got = mSource->read(buffer, 1, (unsigned)wanted);
    mPosition += got;
    if (mPosition == mSize) {
        char crlf[2];
        if (readFully(mSource, crlf, 2) == 2 && crlf[0] == '\r' && crlf[1] == '\n')
            readChunkHeader();
        else
            mSize = mPosition = 0;
    }
    return got;
}

unsigned ChunkedInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("ResponseInputStream::getSTLStream");
}

std::istream* ChunkedInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("ChunkedInputStream::getSTLStream");
}

} // namespace http
} // namespace tarso
