#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>
#include <tmain/stream/StreamIOPool.h>

#include <cstring>
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace stream {

namespace {

void swapInPlace(void* data, unsigned width, unsigned n) {
    unsigned char* p = static_cast<unsigned char*>(data);
    for (unsigned i = 0; i < n; ++i, p += width)
        for (unsigned a = 0, b = width - 1; a < b; ++a, --b) {
            unsigned char t = p[a];
            p[a] = p[b];
            p[b] = t;
        }
}

} // namespace

// ------------------------------------------------------------------ Stream

Stream::~Stream() {}

void Stream::seek(int, ESeekMode) {
    throw ::core::UnsupportedOperationException("Stream::tell() not supported");
}

unsigned Stream::tell() const {
    throw ::core::UnsupportedOperationException("Stream::tell() not supported");
}

long long Stream::seekTarget(int offset, ESeekMode mode, unsigned long long position, unsigned long long end,
                             const char* who) {
    switch (mode) {
    case SM_BEGIN:
        return offset;
    case SM_CURRENT:
        return (long long)position + offset;
    case SM_END:
        return (long long)end - offset;
    default:
        throw ::core::IllegalArgumentException("%s::seek: invalid seek mode %d", who, (int)mode);
    }
}

std::ios_base::openmode Stream::stdOpenMode(EOpenMode mode) {
    std::ios_base::openmode om = std::ios_base::openmode();
    if (mode & OM_READ)
        om |= std::ios_base::in;
    if (mode & OM_WRITE)
        om |= std::ios_base::out;
    if (mode & OM_ATEND)
        om |= std::ios_base::ate;
    if (mode & OM_APPEND)
        om |= std::ios_base::app;
    if (mode & OM_TRUNCATE)
        om |= std::ios_base::trunc;
    if (mode & OM_BINARY)
        om |= std::ios_base::binary;
    return om;
}

void Stream::stdSeekArgs(int offset, ESeekMode mode, const char* who, std::streamoff& off,
                         std::ios_base::seekdir& dir) {
    off = offset;
    switch (mode) {
    case SM_BEGIN:
        dir = std::ios_base::beg;
        break;
    case SM_CURRENT:
        dir = std::ios_base::cur;
        break;
    case SM_END:
        dir = std::ios_base::end;
        off = -off;
        break;
    default:
        throw ::core::IllegalArgumentException("%s::seek: invalid seek mode %d", who, (int)mode);
    }
}

void Stream::seekTo(unsigned position) {
    if (position <= 0x7FFFFFFFu) {
        seek((int)position, SM_BEGIN);
    } else {
        seek(0x7FFFFFFF, SM_BEGIN);
        seek((int)(position - 0x7FFFFFFFu), SM_CURRENT);
    }
}

void Stream::bookMark() {
    mBookmarks.push_back(tell());
}

void Stream::rewind() {
    if (mBookmarks.empty())
        throw ::core::IllegalStateException("Cannot rewind. No bookmarks defined yet.");
    unsigned pos = mBookmarks.back();
    mBookmarks.pop_back();
    seekTo(pos);
}

::core::Future<void> Stream::openAsync(EOpenMode mode) {
    return StreamIOPool::getSingleton()->openStream(this, mode);
}

// ------------------------------------------------------------------ InputStream

InputStream::~InputStream() {}

bool InputStream::readSwapped(void* v, unsigned width, unsigned n) {
    if (n == 0)
        return true;
    if (read(v, width, n) != width * n)
        return false;
    if (swaps() && width > 1)
        swapInPlace(v, width, n);
    return true;
}

bool InputStream::read(char& v) {
    return read(&v, 1, 1) == 1;
}
bool InputStream::read(unsigned char& v) {
    return read(&v, 1, 1) == 1;
}
bool InputStream::read(bool& v) {
    unsigned char b = 0;
    if (read(&b, 1, 1) != 1)
        return false;
    v = b != 0;
    return true;
}
bool InputStream::read(char* v, unsigned n) {
    return n == 0 || read((void*)v, 1, n) == n;
}
bool InputStream::read(unsigned char* v, unsigned n) {
    return n == 0 || read((void*)v, 1, n) == n;
}
// Arrays of bools and longs go through a small buffer: one call per chunk
// rather than one per element.
bool InputStream::read(bool* v, unsigned n) {
    unsigned char tmp[1024];
    while (n > 0) {
        const unsigned k = n < sizeof(tmp) ? n : (unsigned)sizeof(tmp);
        const unsigned got = read(tmp, 1, k);
        for (unsigned i = 0; i < got; ++i)
            v[i] = tmp[i] != 0;
        if (got != k)
            return false;
        v += k;
        n -= k;
    }
    return true;
}
bool InputStream::read(short& v) {
    return readSwapped(&v, 2, 1);
}
bool InputStream::read(unsigned short& v) {
    return readSwapped(&v, 2, 1);
}
bool InputStream::read(short* v, unsigned n) {
    return readSwapped(v, 2, n);
}
bool InputStream::read(unsigned short* v, unsigned n) {
    return readSwapped(v, 2, n);
}
bool InputStream::read(int& v) {
    return readSwapped(&v, 4, 1);
}
bool InputStream::read(unsigned& v) {
    return readSwapped(&v, 4, 1);
}
bool InputStream::read(long& v) {
    int32_t i = 0;
    if (!readSwapped(&i, 4, 1))
        return false;
    v = i;
    return true;
}
bool InputStream::read(int* v, unsigned n) {
    return readSwapped(v, 4, n);
}
bool InputStream::read(unsigned* v, unsigned n) {
    return readSwapped(v, 4, n);
}
bool InputStream::read(long* v, unsigned n) {
    int32_t tmp[256];
    while (n > 0) {
        const unsigned k = n < 256 ? n : 256;
        const unsigned whole = read(tmp, 4, k) / 4;
        if (swaps())
            swapInPlace(tmp, 4, whole);
        for (unsigned i = 0; i < whole; ++i)
            v[i] = tmp[i];
        if (whole != k)
            return false;
        v += k;
        n -= k;
    }
    return true;
}
// Floats are never swapped: they are always stored in little-endian order.
bool InputStream::read(float& v) {
    return read(&v, 4, 1) == 4;
}
bool InputStream::read(float* v, unsigned n) {
    return n == 0 || read((void*)v, 4, n) == 4 * n;
}

bool InputStream::read(std::string& v) {
    unsigned len = 0;
    if (!read(len))
        return false;
    // Grow as the bytes arrive so a corrupt length cannot make us allocate
    // gigabytes up front; a short string is read in place.
    char chunk[4096];
    if (len <= sizeof(chunk)) {
        v.resize(len);
        unsigned got = len ? read(&v[0], 1, len) : 0;
        if (got == len)
            return true;
        v.resize(got);
        return false;
    }
    v.clear();
    while (len > 0) {
        unsigned want = len < sizeof(chunk) ? len : (unsigned)sizeof(chunk);
        unsigned got = read(chunk, 1, want);
        v.append(chunk, got);
        if (got != want)
            return false;
        len -= got;
    }
    return true;
}

::core::Future<unsigned> InputStream::readAsync(void* buffer, unsigned size, unsigned count) {
    return StreamIOPool::getSingleton()->readFromStream(this, buffer, size * count);
}

// ------------------------------------------------------------------ OutputStream

OutputStream::~OutputStream() {}

bool OutputStream::writeSwapped(const void* v, unsigned width, unsigned n) {
    if (n == 0)
        return true;
    if (!swaps() || width == 1)
        return write(v, width, n) == width * n;
    unsigned char tmp[1024];
    const unsigned char* src = static_cast<const unsigned char*>(v);
    const unsigned perChunk = sizeof(tmp) / width;
    while (n > 0) {
        unsigned k = n < perChunk ? n : perChunk;
        memcpy(tmp, src, k * width);
        swapInPlace(tmp, width, k);
        if (write(tmp, width, k) != width * k)
            return false;
        src += k * width;
        n -= k;
    }
    return true;
}

bool OutputStream::write(char v) {
    return write(&v, 1, 1) == 1;
}
bool OutputStream::write(unsigned char v) {
    return write(&v, 1, 1) == 1;
}
bool OutputStream::write(bool v) {
    unsigned char b = v ? 1 : 0;
    return write(&b, 1, 1) == 1;
}
bool OutputStream::write(const char* v, unsigned n) {
    return n == 0 || write((const void*)v, 1, n) == n;
}
bool OutputStream::write(const unsigned char* v, unsigned n) {
    return n == 0 || write((const void*)v, 1, n) == n;
}
bool OutputStream::write(const bool* v, unsigned n) {
    unsigned char tmp[1024];
    while (n > 0) {
        const unsigned k = n < sizeof(tmp) ? n : (unsigned)sizeof(tmp);
        for (unsigned i = 0; i < k; ++i)
            tmp[i] = v[i] ? 1 : 0;
        if (write(tmp, 1, k) != k)
            return false;
        v += k;
        n -= k;
    }
    return true;
}
bool OutputStream::write(short v) {
    return writeSwapped(&v, 2, 1);
}
bool OutputStream::write(unsigned short v) {
    return writeSwapped(&v, 2, 1);
}
bool OutputStream::write(const short* v, unsigned n) {
    return writeSwapped(v, 2, n);
}
bool OutputStream::write(const unsigned short* v, unsigned n) {
    return writeSwapped(v, 2, n);
}
bool OutputStream::write(int v) {
    return writeSwapped(&v, 4, 1);
}
bool OutputStream::write(unsigned v) {
    return writeSwapped(&v, 4, 1);
}
bool OutputStream::write(long v) {
    int32_t i = (int32_t)v;
    return writeSwapped(&i, 4, 1);
}
bool OutputStream::write(const int* v, unsigned n) {
    return writeSwapped(v, 4, n);
}
bool OutputStream::write(const unsigned* v, unsigned n) {
    return writeSwapped(v, 4, n);
}
bool OutputStream::write(const long* v, unsigned n) {
    int32_t tmp[256];
    while (n > 0) {
        const unsigned k = n < 256 ? n : 256;
        for (unsigned i = 0; i < k; ++i)
            tmp[i] = (int32_t)v[i];
        if (!writeSwapped(tmp, 4, k))
            return false;
        v += k;
        n -= k;
    }
    return true;
}
bool OutputStream::write(float v) {
    return write(&v, 4, 1) == 4;
}
bool OutputStream::write(const float* v, unsigned n) {
    return n == 0 || write((const void*)v, 4, n) == 4 * n;
}

bool OutputStream::write(const std::string& v) {
    if (!write((unsigned)v.size()))
        return false;
    return v.empty() || write(v.data(), 1, (unsigned)v.size()) == v.size();
}

::core::Future<unsigned> OutputStream::writeAsync(const void* buffer, unsigned size, unsigned count) {
    return StreamIOPool::getSingleton()->writeToStream(this, buffer, size * count);
}

} // namespace stream
} // namespace tarso
