#pragma once
#include <tmain/Export.h>

namespace logging {
class Logger;
}

namespace tarso {
namespace core {

/// A first-fit block allocator over one region reserved at construction:
/// room for `count` block headers plus `size` payload bytes. Every block
/// starts with a header (state, size including the header); blocks follow
/// each other without gaps.
///
/// Kept as the library has always had it, quirks included: requests are
/// rounded up as (n / alignment + n % alignment) x alignment, which
/// over-rounds some sizes; the search start is cleared by every allocation
/// and deallocation only lowers it, so a pool serves exactly one
/// allocation; and dump() steps sixteen times an allocated block's size.
class TMAIN_API MemoryPool {
public:
    /// Alignment of the payloads in bytes; any byte count works.
    enum AlignmentType {
        ALIGN_NONE = 1,
        ALIGN_4 = 4,
        ALIGN_8 = 8,
        ALIGN_16 = 16,
        ALIGN_32 = 32,
        ALIGN_64 = 64
    };
    static const unsigned BLOCK_FREE = 1;
    static const unsigned BLOCK_ALLOCATED = 2;

    /// Throws core::IllegalArgumentException when the region would not fit
    /// in 32 bits.
    MemoryPool(AlignmentType alignment, unsigned size, unsigned count);
    ~MemoryPool();
    MemoryPool(const MemoryPool&) = delete;
    MemoryPool& operator=(const MemoryPool&) = delete;

    /// The payload of a block of at least n bytes, or null.
    void* allocate(unsigned n);
    /// Frees an allocation of this pool (null is ignored); anything else
    /// throws core::IllegalArgumentException.
    void deallocate(void* p);
    /// Logs the allocated blocks at info level.
    void dump(logging::Logger* logger) const;

    unsigned getAlignment() const { return mAlignment; }
    /// Bytes of the whole region, headers included.
    unsigned getSize() const { return mSize; }
    unsigned getInitialFree() const { return mInitialFree; }
    unsigned getFree() const { return mFree; }
    unsigned getAllocationCount() const { return mAllocations; }
    unsigned getHeaderSize() const { return mHeaderSize; }

private:
    struct Block {
        unsigned state;
        unsigned size; ///< bytes including the header
    };

    Block* next(Block* b) const { return reinterpret_cast<Block*>(reinterpret_cast<char*>(b) + b->size); }
    Block* findAllocated(Block* b) const;
    Block* findFree(unsigned size, Block* from) const;
    void allocate(Block* b, unsigned size);
    void merge(Block* first, Block* second);

    unsigned mAlignment;
    unsigned mSize;
    unsigned mInitialFree;
    unsigned mFree;
    unsigned mAllocations;
    unsigned mHeaderSize;
    char* mRegion;
    char* mEnd;
    Block* mSearchStart;
};

} // namespace core
} // namespace tarso
