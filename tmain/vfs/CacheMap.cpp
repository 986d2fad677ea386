#include <tmain/vfs/CacheMap.h>

#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace vfs {

const ::core::Type CacheMap::TYPE("tarso::vfs::CacheMap", &core::Object::TYPE);

// Version 1 is the legacy layout (its Object part has no version number).
const core::DeserializerEntry CacheMap::DESERIALIZER_LIST[2] = {{1, &CacheMap::readLegacy},
                                                                {2, &CacheMap::readCurrent}};

CacheMap::EntryList::iterator CacheMap::findPos(unsigned p) {
    for (auto it = mEntries.begin(); it != mEntries.end(); ++it) {
        if (p < it->mStart)
            return mEntries.insert(it, CacheMapEntry(p, 0));
        if (p <= it->getEnd())
            return it;
    }
    return mEntries.end();
}

void CacheMap::addEntry(unsigned start, unsigned size) {
    // An empty entry at offset 0 would claim every offset (its end wraps to
    // 0xFFFFFFFF), so empty ranges are not recorded at all.
    if (size == 0)
        return;
    auto it = findPos(start);
    if (it != mEntries.end()) {
        it->mSize = start - it->mStart + size;
        collapseForward(it);
        collapseBackwards(it);
    } else {
        mEntries.push_back(CacheMapEntry(start, size));
        collapseBackwards(std::prev(mEntries.end()));
    }
}

void CacheMap::collapseForward(EntryList::iterator it) {
    const unsigned end = it->mStart + it->mSize;
    const unsigned last = end - 1;
    auto n = std::next(it);
    while (n != mEntries.end() && n->mStart <= end) {
        if (n->getEnd() > last)
            it->mSize = n->mStart + n->mSize - it->mStart;
        n = mEntries.erase(n);
    }
}

void CacheMap::collapseBackwards(EntryList::iterator it) {
    const unsigned start = it->mStart;
    const unsigned last = it->getEnd();
    // Walks all the way to the front: it does not stop at the first gap.
    auto p = it;
    while (p != mEntries.begin()) {
        --p;
        if (p->getEnd() >= start - 1) {
            it->mStart = p->mStart;
            it->mSize = last - p->mStart + 1;
            p = mEntries.erase(p); // the element after the erased one
        }
    }
}

const CacheMapEntry* CacheMap::getEntry(unsigned start, unsigned size) const {
    for (const CacheMapEntry& e : mEntries)
        if (e.mStart <= start && (unsigned long long)start + size <= (unsigned long long)e.mStart + e.mSize)
            return &e;
    return nullptr;
}

unsigned CacheMap::getCachedSize() const {
    unsigned total = 0;
    for (const CacheMapEntry& e : mEntries)
        total += e.mSize;
    return total;
}

bool CacheMap::fits(unsigned long long fileSize) const {
    unsigned long long previousEnd = 0;
    bool first = true;
    for (const CacheMapEntry& e : mEntries) {
        const unsigned long long end = (unsigned long long)e.mStart + e.mSize;
        if (e.mSize == 0 || end > fileSize || (!first && e.mStart <= previousEnd))
            return false;
        previousEnd = end;
        first = false;
    }
    return true;
}

core::Object* CacheMap::clone(core::CloningOptions& options) const {
    CacheMap* copy = new CacheMap(*this);
    _clone(copy, options);
    return copy;
}

void CacheMap::writeSUID(stream::OutputStream* out) const {
    checkWrite(core::writeRawSUID(out, mSUID), "writeSUID");
}

void CacheMap::serialize(stream::OutputStream* out, core::Serializer* serializer) const {
    writeSUID(out);
    core::Object::serialize(out, serializer);
    checkWrite(out->write((unsigned)mEntries.size()), "mEntries[]::size");
    for (const CacheMapEntry& e : mEntries) {
        checkWrite(out->write(e.mStart), "mEntries[]::mStart");
        checkWrite(out->write(e.mSize), "mEntries[]::mSize");
    }
}

// Entries are appended in the order read, without merging; a short read
// leaves the list as far as it got.
void CacheMap::readEntries(stream::InputStream* in) {
    unsigned count = 0;
    checkRead(in->read(count), "mEntries[]::size");
    for (unsigned i = 0; i < count; ++i) {
        CacheMapEntry e;
        checkRead(in->read(e.mStart), "mEntries[]::mStart");
        checkRead(in->read(e.mSize), "mEntries[]::mSize");
        mEntries.push_back(e);
    }
}

void CacheMap::readCurrent(core::Serializable* object, stream::InputStream* in,
                           core::Serializer* serializer) {
    CacheMap* self = static_cast<CacheMap*>(object);
    self->core::Object::deserialize(in, serializer);
    self->readEntries(in);
}

void CacheMap::readLegacy(core::Serializable* object, stream::InputStream* in, core::Serializer* serializer) {
    CacheMap* self = static_cast<CacheMap*>(object);
    self->core::Object::deserializeLegacy0(in, serializer);
    self->readEntries(in);
}

void CacheMap::deserialize(stream::InputStream* in, core::Serializer* serializer) {
    unsigned suid = 0;
    checkRead(core::readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void CacheMap::deserializeLegacy0(stream::InputStream* in, core::Serializer* serializer) {
    readLegacy(this, in, serializer);
}

void CacheMap::deserializeLegacy1(stream::InputStream* in, core::Serializer* serializer, unsigned version) {
    getDeserializer(version)(this, in, serializer);
}

} // namespace vfs
} // namespace tarso
