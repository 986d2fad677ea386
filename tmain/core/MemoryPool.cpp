#include <tmain/core/MemoryPool.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>

namespace tarso {
namespace core {

namespace {
/// The region starts on a header boundary where that is a power of two, so
/// payloads keep the alignment whenever it divides the header size.
std::align_val_t regionAlignment(unsigned headerSize) {
    return std::align_val_t((headerSize & (headerSize - 1)) == 0 ? headerSize : 16);
}
} // namespace

MemoryPool::MemoryPool(AlignmentType alignment, unsigned size, unsigned count)
    : mAlignment((unsigned)alignment), mSize(0), mInitialFree(0), mFree(0), mAllocations(0),
      mHeaderSize(mAlignment > 16 ? mAlignment : 16), mRegion(nullptr), mEnd(nullptr), mSearchStart(nullptr) {
    unsigned long long total = (unsigned long long)mHeaderSize * count + size;
    if (total > 0xFFFFFFFFull || total < mHeaderSize)
        throw ::core::IllegalArgumentException(
            "MemoryPool: a region of %llu bytes (%u bytes and %u block headers) is too large", total, size,
            count);
    mSize = (unsigned)total;
    mRegion = static_cast<char*>(::operator new(mSize, regionAlignment(mHeaderSize)));
    mEnd = mRegion + mSize;
    // Zeroed, so that dump()'s long steps land on a stop rather than on garbage.
    memset(mRegion, 0, mSize);
    Block* first = reinterpret_cast<Block*>(mRegion);
    first->state = BLOCK_FREE;
    first->size = mSize;
    mInitialFree = mFree = mSize - mHeaderSize;
    mSearchStart = first;
}

MemoryPool::~MemoryPool() {
    ::operator delete(mRegion, regionAlignment(mHeaderSize));
}

void* MemoryPool::allocate(unsigned n) {
    unsigned long long rounded = n;
    if (mAlignment > 1) // over-rounds some sizes; kept as it always was
        rounded = ((unsigned long long)(n / mAlignment) + n % mAlignment) * mAlignment;
    if (rounded > mSize)
        return nullptr;
    Block* b = findFree((unsigned)rounded, mSearchStart);
    if (!b)
        return nullptr;
    allocate(b, mHeaderSize + (unsigned)rounded);
    mSearchStart = nullptr;
    return reinterpret_cast<char*>(b) + mHeaderSize;
}

void MemoryPool::allocate(Block* b, unsigned size) {
    unsigned rest = b->size - size;
    if (rest >= mHeaderSize) {
        Block* split = reinterpret_cast<Block*>(reinterpret_cast<char*>(b) + size);
        split->state = BLOCK_FREE;
        split->size = rest;
        b->size = size;
        mFree -= size;
    } else {
        // Too little left for a block of its own: the whole block is taken.
        mFree -= b->size - mHeaderSize;
    }
    b->state = BLOCK_ALLOCATED;
    ++mAllocations;
}

MemoryPool::Block* MemoryPool::findFree(unsigned size, Block* from) const {
    for (Block* b = from; b && reinterpret_cast<char*>(b) < mEnd; b = next(b))
        if (b->state == BLOCK_FREE && b->size - mHeaderSize >= size)
            return b;
    return nullptr;
}

MemoryPool::Block* MemoryPool::findAllocated(Block* target) const {
    for (Block* b = reinterpret_cast<Block*>(mRegion); reinterpret_cast<char*>(b) < mEnd; b = next(b))
        if (b == target)
            return b->state == BLOCK_ALLOCATED ? b : nullptr;
    return nullptr;
}

void MemoryPool::merge(Block* first, Block* second) {
    first->size += second->size;
    mFree += mHeaderSize;
}

void MemoryPool::deallocate(void* p) {
    if (!p)
        return;
    char* c = static_cast<char*>(p);
    Block* b = c >= mRegion + mHeaderSize && c < mEnd
                   ? findAllocated(reinterpret_cast<Block*>(c - mHeaderSize))
                   : nullptr;
    if (!b)
        throw ::core::IllegalArgumentException("MemoryPool::deallocate: %p is not an allocation of this pool",
                                               p);
    b->state = BLOCK_FREE;
    --mAllocations;
    mFree += b->size - mHeaderSize;
    Block* after = next(b);
    if (reinterpret_cast<char*>(after) < mEnd && after->state == BLOCK_FREE)
        merge(b, after);
    // A cleared search start (null) is never above a block: it stays cleared.
    if (b < mSearchStart)
        mSearchStart = b;
}

void MemoryPool::dump(logging::Logger* logger) const {
    if (!logger)
        return;
    logger->info("Memory dump for %d allocations:", (int)mAllocations);
    for (char* c = mRegion; c < mEnd;) {
        const Block* b = reinterpret_cast<const Block*>(c);
        if (b->size == 0)
            break;
        if (b->state == BLOCK_ALLOCATED) {
            logger->info("\tAddress: %X, size: %d", (unsigned)(uintptr_t)(c + mHeaderSize),
                         (int)(b->size - mHeaderSize));
            // The walk steps sixteen times the block's size; kept as it always was.
            if ((size_t)(mEnd - c) / 16 < b->size)
                break;
            c += (size_t)b->size * 16;
        } else {
            if ((size_t)(mEnd - c) < b->size)
                break;
            c += b->size;
        }
    }
    logger->info("^^^^^^^^^^^^^^^^^^^^");
    logger->info("Memory dump finished");
}

} // namespace core
} // namespace tarso
