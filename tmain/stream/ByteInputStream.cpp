#include <tmain/stream/ByteInputStream.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <streambuf>
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace stream {

/// Read-only view of the block with random access for seekg/tellg.
class ByteInputStream::STLBuffer : public std::streambuf {
public:
    void reset(const unsigned char* data, unsigned size, unsigned pos) {
        char* begin = const_cast<char*>(reinterpret_cast<const char*>(data));
        setg(begin, begin + pos, begin + size);
    }

protected:
    pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) override {
        if (!(which & std::ios_base::in))
            return pos_type(off_type(-1));
        off_type base = dir == std::ios_base::beg   ? 0
                        : dir == std::ios_base::cur ? gptr() - eback()
                                                    : egptr() - eback();
        off_type target = base + off;
        if (target < 0 || target > egptr() - eback())
            return pos_type(off_type(-1));
        setg(eback(), eback() + target, egptr());
        return pos_type(target);
    }
    pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
        return seekoff(off_type(pos), std::ios_base::beg, which);
    }
};

ByteInputStream::ByteInputStream(const void* data, unsigned size, bool copy)
    : mData(nullptr), mSize(0), mRemaining(0), mOwned(false) {
    setInput(data, size, copy);
}

ByteInputStream::~ByteInputStream() {
    mSTLStream.reset();
    if (mOwned)
        free(const_cast<unsigned char*>(mData));
}

void ByteInputStream::setInput(const void* data, unsigned size) {
    setInput(data, size, mOwned);
}

void ByteInputStream::setInput(const void* data, unsigned size, bool copy) {
    if (!data && size > 0)
        throw ::core::IllegalArgumentException("ByteInputStream: no data for %u bytes", size);
    const unsigned char* block = static_cast<const unsigned char*>(data);
    // Borrowing from the block we are about to free would leave a dangling
    // pointer: take a copy instead. Copying happens before freeing for the
    // same reason.
    uintptr_t at = (uintptr_t)block, own = (uintptr_t)mData;
    if (!copy && mOwned && at >= own && at < own + mSize)
        copy = true;
    if (copy && size > 0) {
        unsigned char* owned = static_cast<unsigned char*>(malloc(size));
        if (!owned)
            throw ::core::IllegalStateException("ByteInputStream: could not allocate data");
        memcpy(owned, data, size);
        block = owned;
    } else if (copy) {
        block = nullptr;
    }
    if (mOwned)
        free(const_cast<unsigned char*>(mData));
    mData = block;
    mSize = size;
    mRemaining = size;
    mOwned = copy;
    if (mSTLBuffer)
        mSTLBuffer->reset(mData, mSize, 0);
}

void ByteInputStream::open(EOpenMode) {}

void ByteInputStream::close() {}

void ByteInputStream::seek(int offset, ESeekMode mode) {
    long long target = seekTarget(offset, mode, tell(), mSize, "ByteInputStream");
    if (target < 0)
        target = 0;
    mRemaining = target >= (long long)mSize ? 0 : mSize - (unsigned)target;
}

unsigned ByteInputStream::read(void* buffer, unsigned size, unsigned count) {
    unsigned long long wanted = (unsigned long long)size * count;
    unsigned n = wanted < mRemaining ? (unsigned)wanted : mRemaining;
    if (n == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("ByteInputStream::read: no buffer");
    memcpy(buffer, mData + (mSize - mRemaining), n);
    mRemaining -= n;
    return n;
}

unsigned ByteInputStream::readLine(char* buffer, int capacity, char delimiter) {
    if (capacity <= 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("ByteInputStream::readLine: no buffer");
    const unsigned char* start = mData + (mSize - mRemaining);
    unsigned room = (unsigned)capacity - 1;
    unsigned scan = mRemaining < room ? mRemaining : room;
    const void* hit = scan ? memchr(start, (unsigned char)delimiter, scan) : nullptr;
    unsigned stored = hit ? (unsigned)(static_cast<const unsigned char*>(hit) - start) : scan;
    if (stored)
        memcpy(buffer, start, stored);
    buffer[stored] = '\0';
    // The delimiter may also sit just past a full buffer; it is left for the
    // next call then, as with fgets.
    mRemaining -= stored + (hit ? 1 : 0);
    return stored;
}

std::istream* ByteInputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLBuffer());
        mSTLBuffer->reset(mData, mSize, tell());
        mSTLStream.reset(new std::istream(mSTLBuffer.get()));
    }
    return mSTLStream.get();
}

} // namespace stream
} // namespace tarso
