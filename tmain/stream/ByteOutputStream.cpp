#include <tmain/stream/ByteOutputStream.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <streambuf>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/IOException.h>

namespace tarso {
namespace stream {

/// Unbuffered: every character goes straight into the block, so the owner's
/// position is always current.
class ByteOutputStream::STLBuffer : public std::streambuf {
public:
    explicit STLBuffer(ByteOutputStream& owner) : mOwner(owner) {}

protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        char ch = traits_type::to_char_type(c);
        return mOwner.append(&ch, 1) == 1 ? c : traits_type::eof();
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        return n <= 0 ? 0 : mOwner.append(s, (unsigned long long)n);
    }
    pos_type seekoff(off_type off, std::ios_base::seekdir dir, std::ios_base::openmode which) override {
        if (!(which & std::ios_base::out) || off < INT_MIN || off > INT_MAX)
            return pos_type(off_type(-1));
        // std::ios_base::end counts forward like the other directions here.
        long long base = dir == std::ios_base::beg   ? 0
                         : dir == std::ios_base::cur ? mOwner.mPosition
                                                     : mOwner.mCapacity;
        long long target = base + off;
        // Asking for the position is fine even when it sits at the capacity.
        if (target < 0 || target >= (long long)mOwner.mCapacity)
            return target == mOwner.mPosition ? pos_type(target) : pos_type(off_type(-1));
        mOwner.mPosition = (unsigned)target;
        return pos_type(target);
    }
    pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
        return seekoff(off_type(pos), std::ios_base::beg, which);
    }

private:
    ByteOutputStream& mOwner;
};

namespace {
unsigned long long roundUp(unsigned long long n, unsigned step) {
    return (n + step - 1) / step * step;
}
} // namespace

ByteOutputStream::ByteOutputStream(unsigned initialSize, unsigned increment)
    : mInitialSize(initialSize), mCapacity(0), mIncrement(increment), mPosition(0), mData(nullptr),
      mSTLRequested(false), mOpen(false) {
    if (increment == 0)
        throw ::core::IllegalArgumentException("ByteOutputStream: the increment must not be 0");
    unsigned long long capacity = roundUp(initialSize, increment);
    if (capacity > UINT_MAX)
        throw ::core::IllegalStateException("ByteOutputStream: could not allocate data");
    if (capacity > 0) {
        mData = static_cast<unsigned char*>(calloc((size_t)capacity, 1));
        if (!mData)
            throw ::core::IllegalStateException("ByteOutputStream: could not allocate data");
    }
    mCapacity = (unsigned)capacity;
}

ByteOutputStream::~ByteOutputStream() {
    mSTLStream.reset();
    mSTLBuffer.reset();
    free(mData);
}

void ByteOutputStream::open(EOpenMode) {
    mOpen = true;
}

void ByteOutputStream::close() {
    mOpen = false;
}

void ByteOutputStream::seek(int offset, ESeekMode mode) {
    long long target = seekTarget(offset, mode, mPosition, mCapacity, "ByteOutputStream");
    if (target < 0 || target >= (long long)mCapacity)
        throw IOException("ByteOutputStream:seek:invalid offset (%lld not in range [0,%d])", target,
                          (int)mCapacity);
    mPosition = (unsigned)target;
}

void ByteOutputStream::checkUsable() const {
    if (!mOpen)
        throw ::core::IllegalStateException("ByteOutputStream: stream not yet opened");
    if (mSTLRequested)
        throw ::core::IllegalStateException("ByteOutputStream: getSTLStream() already invoked");
}

unsigned ByteOutputStream::write(const void* buffer, unsigned size, unsigned count) {
    if (!mOpen || mSTLRequested)
        checkUsable();
    const unsigned long long bytes = (unsigned long long)size * count;
    // The common case, room in the block, without a further call.
    if (bytes && buffer && mPosition + bytes <= mCapacity) {
        memcpy(mData + mPosition, buffer, (size_t)bytes);
        mPosition += (unsigned)bytes;
        return (unsigned)bytes;
    }
    return append(buffer, bytes);
}

void ByteOutputStream::patch(unsigned position, const void* data, unsigned size) {
    if ((unsigned long long)position + size > mPosition)
        throw IOException("ByteOutputStream::patch: invalid range (%u+%u beyond %u)", position, size,
                          mPosition);
    memcpy(mData + position, data, size);
}

void ByteOutputStream::flush() {
    checkUsable();
}

std::ostream* ByteOutputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLBuffer(*this));
        mSTLStream.reset(new std::ostream(mSTLBuffer.get()));
    }
    mSTLRequested = true;
    return mSTLStream.get();
}

void ByteOutputStream::growBy(unsigned long long missing) {
    unsigned long long capacity = mCapacity + roundUp(missing, mIncrement);
    if (capacity > UINT_MAX)
        throw ::core::IllegalStateException("ByteOutputStream: could not allocate data");
    // realloc copies into the new block and frees the old one, and can often
    // do so without copying at all.
    unsigned char* data = static_cast<unsigned char*>(realloc(mData, (size_t)capacity));
    if (!data)
        throw ::core::IllegalStateException("ByteOutputStream: could not allocate data");
    // Bytes skipped by a forward seek read as zero rather than garbage.
    memset(data + mCapacity, 0, (size_t)(capacity - mCapacity));
    mData = data;
    mCapacity = (unsigned)capacity;
}

unsigned ByteOutputStream::append(const void* buffer, unsigned long long bytes) {
    if (bytes == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("ByteOutputStream::write: no buffer");
    unsigned long long end = mPosition + bytes;
    if (end > mCapacity)
        growBy(end - mCapacity);
    memcpy(mData + mPosition, buffer, (size_t)bytes);
    mPosition = (unsigned)end;
    return (unsigned)bytes;
}

} // namespace stream
} // namespace tarso
