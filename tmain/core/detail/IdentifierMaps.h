#pragma once
// The serializer's two identifier maps. Every record written or read enters
// one object, so these are flat tables without a node allocation per entry.
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace tarso {
namespace core {
namespace detail {

/// Object address to identifier: open addressing with linear probing, at
/// most half full. Entries are only removed all at once.
class ObjectToID {
public:
    static constexpr unsigned NONE = 0xFFFFFFFFu;

    /// The identifier of `key`, or NONE.
    unsigned find(const void* key) const {
        if (!key)
            return mNullID;
        if (mSize == 0)
            return NONE;
        for (size_t i = slotOf(key);; i = (i + 1) & mMask) {
            const Slot& s = mSlots[i];
            if (s.key == key)
                return s.id;
            if (!s.key)
                return NONE;
        }
    }

    /// The identifier slot of `key`, entered with `id` when it was missing;
    /// `added` tells which.
    unsigned& insert(const void* key, unsigned id, bool& added) {
        if (!key) { // an empty slot's key: kept apart
            added = mNullID == NONE;
            if (added)
                mNullID = id;
            return mNullID;
        }
        if ((mSize + 1) * 2 > mSlots.size())
            grow();
        for (size_t i = slotOf(key);; i = (i + 1) & mMask) {
            Slot& s = mSlots[i];
            if (s.key == key) {
                added = false;
                return s.id;
            }
            if (!s.key) {
                s.key = key;
                s.id = id;
                ++mSize;
                added = true;
                return s.id;
            }
        }
    }

    void set(const void* key, unsigned id) {
        bool added;
        insert(key, id, added) = id;
    }

    void clear() {
        std::vector<Slot>().swap(mSlots);
        mNullID = NONE;
        mSize = 0;
        mMask = 0;
        mShift = 64;
    }

private:
    struct Slot {
        const void* key;
        unsigned id;
    };

    size_t slotOf(const void* key) const {
        // Objects made one after another lie close together, and graphs are
        // mostly written in the order they were made: the addresses of one
        // 4 KiB page keep their order in a run of 256 slots, so the table is
        // probed in order rather than once per cache line; the pages land
        // apart by Fibonacci hashing of their number.
        const uint64_t a = (uintptr_t)key;
        return (size_t)(((a >> 12) * 0x9E3779B97F4A7C15ull >> mShift) + ((a >> 4) & 0xFF)) & mMask;
    }

    void grow() {
        std::vector<Slot> old;
        old.swap(mSlots);
        mSlots.assign(old.empty() ? 64 : old.size() * 2, Slot{nullptr, 0});
        mMask = mSlots.size() - 1;
        mShift = 64;
        for (size_t n = mSlots.size(); n > 1; n >>= 1)
            --mShift;
        for (const Slot& s : old)
            if (s.key)
                for (size_t i = slotOf(s.key);; i = (i + 1) & mMask)
                    if (!mSlots[i].key) {
                        mSlots[i] = s;
                        break;
                    }
    }

    std::vector<Slot> mSlots;
    unsigned mNullID = NONE;
    size_t mSize = 0;
    size_t mMask = 0;
    unsigned mShift = 64;
};

/// Identifier to object. A sound stream numbers its objects 0, 1, 2, ... so
/// they go into a vector indexed by identifier; identifiers far beyond the
/// entries made so far (a hostile stream) go into a hash map, so the vector
/// never grows past about twice the number of its entries.
template <class T> class IDToObject {
public:
    /// The object entered under `id`, or null.
    T* find(unsigned id) const {
        if (id < mDense.size() && (mDense[id] || mSparse.empty()))
            return mDense[id];
        if (mSparse.empty())
            return nullptr;
        auto it = mSparse.find(id);
        return it == mSparse.end() ? nullptr : it->second;
    }

    void set(unsigned id, T* object) {
        if (id >= mDense.size() && id <= 2 * (size_t)mDenseCount + 1024)
            mDense.resize((size_t)id + 1, nullptr);
        if (id >= mDense.size()) {
            mSparse[id] = object;
            return;
        }
        if (!mDense[id]) {
            ++mDenseCount;
            if (!mSparse.empty()) // entered as sparse before the vector reached it
                mSparse.erase(id);
        }
        mDense[id] = object;
    }

    void clear() {
        std::vector<T*>().swap(mDense);
        mSparse.clear();
        mDenseCount = 0;
    }

private:
    std::vector<T*> mDense;
    unsigned mDenseCount = 0;
    std::unordered_map<unsigned, T*> mSparse;
};

} // namespace detail
} // namespace core
} // namespace tarso
