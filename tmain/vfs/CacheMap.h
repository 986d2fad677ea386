#pragma once
#include <list>
#include <tmain/core/Object.h>

namespace tarso {
namespace vfs {

/// A range of bytes present in a cached file: mStart and mSize.
struct TMAIN_API CacheMapEntry {
    unsigned mStart;
    unsigned mSize;

    CacheMapEntry(unsigned start = 0, unsigned size = 0) : mStart(start), mSize(size) {}
    /// Offset of the last byte (inclusive, unsigned 32-bit arithmetic).
    unsigned getEnd() const { return mStart + mSize - 1; }
    bool operator==(const CacheMapEntry& o) const { return mStart == o.mStart && mSize == o.mSize; }
};

/// Which byte ranges of a partly fetched file are present in its local copy:
/// a list sorted by start in which neighbouring ranges are merged.
class TMAIN_API CacheMap : public core::Object {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(2, 2)
public:
    typedef std::list<CacheMapEntry> EntryList;

    CacheMap() {}
    CacheMap(const CacheMap& other) : core::Object(other), mEntries(other.mEntries) {}
    CacheMap(CacheMap&& other) noexcept : core::Object(), mEntries(std::move(other.mEntries)) {}
    CacheMap& operator=(const CacheMap& other) {
        mEntries = other.mEntries;
        return *this;
    }
    CacheMap& operator=(CacheMap&& other) noexcept {
        mEntries = std::move(other.mEntries);
        return *this;
    }

    /// Records that bytes start .. start+size-1 are present. A range that lies
    /// inside an existing entry and ends before it cuts that entry back to the
    /// range's end: the bytes behind are forgotten and fetched again later
    /// (deliberate). An empty range records nothing.
    void addEntry(unsigned start, unsigned size);
    /// The first entry holding the whole range, or null.
    const CacheMapEntry* getEntry(unsigned start, unsigned size) const;
    /// Sum of all entry sizes.
    unsigned getCachedSize() const;
    const EntryList& getEntries() const { return mEntries; }
    /// True when the entries are what merging produces for a file of
    /// `fileSize` bytes: sorted, separate (not even touching), non-empty and
    /// inside the file. A map read from disk is trusted only then.
    bool fits(unsigned long long fileSize) const;
    void clear() { mEntries.clear(); }

    using core::Object::clone;
    core::Object* clone(core::CloningOptions& options) const override;

    void serialize(stream::OutputStream* out, core::Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, core::Serializer* serializer) override;
    void deserializeLegacy0(stream::InputStream* in, core::Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, core::Serializer* serializer, unsigned version) override;

private:
    EntryList::iterator findPos(unsigned position);
    void collapseForward(EntryList::iterator it);
    void collapseBackwards(EntryList::iterator it);
    void writeSUID(stream::OutputStream* out) const;
    void readEntries(stream::InputStream* in);
    static void readCurrent(core::Serializable* object, stream::InputStream* in,
                            core::Serializer* serializer);
    static void readLegacy(core::Serializable* object, stream::InputStream* in, core::Serializer* serializer);

    EntryList mEntries;
};

} // namespace vfs
} // namespace tarso
