#pragma once
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/LessStr.h>
#include <utility>

namespace core {

/// Dictionary keyed by C strings. Despite the name it is an ordered tree:
/// iteration follows strcmp order and keys are case-sensitive. The map owns a
/// malloc'ed copy of every key. Missing keys read as the default value (get)
/// or are filled in by resolve (operator[]); with notifyLost on, every value
/// that put replaces, remove deletes or clear drops goes through handleLost.
///
/// The destructor frees the keys without calling handleLost (a base destructor
/// cannot reach the derived hook): a subclass owning its values calls clear()
/// in its own destructor. Not synchronised: concurrent const calls are safe,
/// anything else needs the caller's lock. Header-only, so no export macro.
template <class T> class CKHashMapBase {
public:
    typedef std::map<const char*, T, less_str> EntryMap;
    typedef typename EntryMap::const_iterator const_iterator;

    CKHashMapBase(bool notifyLost, T defaultValue)
        : mNotifyLost(notifyLost), mDefaultValue(std::move(defaultValue)) {}

    CKHashMapBase(const CKHashMapBase& other)
        : mNotifyLost(other.mNotifyLost), mDefaultValue(other.mDefaultValue) {
        copyEntries(other.mEntries, mEntries);
    }

    /// Replaces the entries (fresh key copies), the flag and the default. The
    /// values given up are not passed to handleLost.
    CKHashMapBase& operator=(const CKHashMapBase& other) {
        if (this != &other) {
            EntryMap copy;
            copyEntries(other.mEntries, copy);
            try {
                mDefaultValue = other.mDefaultValue;
            } catch (...) {
                freeKeys(copy);
                throw;
            }
            mEntries.swap(copy);
            freeKeys(copy);
            mNotifyLost = other.mNotifyLost;
        }
        return *this;
    }

    virtual ~CKHashMapBase() { freeKeys(mEntries); }

    /// The value operator[] stores for a key it does not find; by default a
    /// copy of the default value.
    virtual T resolve(const char* key) {
        (void)key;
        return mDefaultValue;
    }

    /// Receives each value the map loses while notifyLost is on.
    virtual void handleLost(T value) const = 0;

    /// The stored value, or the default value for a missing key; never inserts.
    virtual T get(const char* key) const {
        if (key == nullptr)
            return mDefaultValue;
        const_iterator it = mEntries.find(key);
        return it != mEntries.end() ? it->second : mDefaultValue;
    }

    /// Inserts or replaces; true when the key was already present.
    bool put(const char* key, T value) {
        checkKey(key);
        typename EntryMap::iterator it = mEntries.find(key);
        if (it != mEntries.end()) {
            if (mNotifyLost)
                handleLost(it->second);
            // Keys equal under strcmp have equal lengths, so the old key copy
            // always fits the new key: the entry keeps its buffer and its node.
            it->second = std::move(value);
            return true;
        }
        insertCopy(key, std::move(value));
        return false;
    }

    bool put(const std::string& key, T value) { return put(key.c_str(), std::move(value)); }

    /// Deletes the entry; false (and no call to handleLost) when it is missing.
    bool remove(const char* key) {
        if (key == nullptr)
            return false;
        typename EntryMap::iterator it = mEntries.find(key);
        if (it == mEntries.end())
            return false;
        if (mNotifyLost)
            handleLost(it->second);
        char* keyCopy = const_cast<char*>(it->first);
        mEntries.erase(it);
        std::free(keyCopy);
        return true;
    }

    bool containsKey(const char* key) const { return key != nullptr && mEntries.find(key) != mEntries.end(); }

    /// The stored value; a missing key gets resolve(key) stored and returned.
    T operator[](const char* key) {
        checkKey(key);
        typename EntryMap::iterator it = mEntries.find(key);
        if (it != mEntries.end())
            return it->second;
        T value = resolve(key);
        // resolve may itself have stored the key; the value it returned wins.
        it = mEntries.find(key);
        if (it != mEntries.end()) {
            it->second = value;
            return value;
        }
        insertCopy(key, value);
        return value;
    }

    T operator[](const std::string& key) { return (*this)[key.c_str()]; }

    /// Drops every entry, passing each value to handleLost first when
    /// notifyLost is on.
    void clear() {
        if (mNotifyLost) {
            for (const_iterator it = mEntries.begin(); it != mEntries.end(); ++it)
                handleLost(it->second);
        }
        freeKeys(mEntries);
        mEntries.clear();
    }

    const_iterator begin() const { return mEntries.begin(); }
    const_iterator end() const { return mEntries.end(); }
    size_t size() const { return mEntries.size(); }
    bool empty() const { return mEntries.empty(); }

protected:
    EntryMap mEntries;
    bool mNotifyLost;
    T mDefaultValue;

private:
    static void checkKey(const char* key) {
        if (key == nullptr)
            throw IllegalArgumentException("CKHashMap: null key");
    }

    static char* copyKey(const char* key) {
        size_t size = std::strlen(key) + 1;
        char* copy = static_cast<char*>(std::malloc(size));
        if (copy == nullptr)
            throw std::bad_alloc();
        std::memcpy(copy, key, size);
        return copy;
    }

    void insertCopy(const char* key, T value) {
        char* copy = copyKey(key);
        try {
            mEntries.emplace(copy, std::move(value));
        } catch (...) {
            std::free(copy);
            throw;
        }
    }

    static void freeKeys(EntryMap& entries) {
        for (typename EntryMap::iterator it = entries.begin(); it != entries.end(); ++it)
            std::free(const_cast<char*>(it->first));
    }

    // Fills the empty map dst with fresh key copies of src; on failure dst is
    // left empty and nothing leaks.
    static void copyEntries(const EntryMap& src, EntryMap& dst) {
        try {
            for (const_iterator it = src.begin(); it != src.end(); ++it) {
                char* copy = copyKey(it->first);
                try {
                    dst.emplace_hint(dst.end(), copy, it->second);
                } catch (...) {
                    std::free(copy);
                    throw;
                }
            }
        } catch (...) {
            freeKeys(dst);
            dst.clear();
            throw;
        }
    }
};

/// CKHashMapBase for values that need no clean-up: lost values are ignored.
template <class T> class CKHashMapValue : public CKHashMapBase<T> {
public:
    explicit CKHashMapValue(bool notifyLost = false, T defaultValue = T())
        : CKHashMapBase<T>(notifyLost, std::move(defaultValue)) {}

    void handleLost(T value) const override { (void)value; }
};

} // namespace core
