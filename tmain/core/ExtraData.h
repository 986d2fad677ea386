#pragma once
#include <map>
#include <tmain/core/ExtraDataEntry.h>

namespace tarso {
namespace core {

/// Typed attachments: entries filed under a run-time type record. Several
/// entries may share a type; each entry is held by a counted reference.
class TMAIN_API ExtraData : public Object {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(1, 1)
public:
    typedef std::multimap<const ::core::Type*, ExtraDataEntry*> EntryMap;
    typedef EntryMap::iterator iterator;
    typedef EntryMap::const_iterator const_iterator;
    typedef std::pair<iterator, iterator> range;

    ExtraData();
    /// Shares the other's entries.
    ExtraData(const ExtraData& other);
    ExtraData& operator=(const ExtraData& other);
    ~ExtraData() override;

    /// False (and nothing added) for a null type or entry, or an entry
    /// already filed under that type.
    bool addEntry(const ::core::Type* type, ExtraDataEntry* entry);
    unsigned getEntryCount() const { return (unsigned)mEntries.size(); }
    void clear();
    /// Removes the entries of one type.
    void clear(const ::core::Type* type);
    iterator removeEntry(iterator it);
    iterator removeEntries(range r);

    iterator begin() { return mEntries.begin(); }
    iterator end() { return mEntries.end(); }
    const_iterator begin() const { return mEntries.begin(); }
    const_iterator end() const { return mEntries.end(); }
    /// The entries filed under one type.
    range getEntries(const ::core::Type* type) { return mEntries.equal_range(type); }
    /// The first entry of the type, or null.
    ExtraDataEntry* getEntry(const ::core::Type* type) const;

    using Object::clone;
    /// Clones every entry.
    Object* clone(CloningOptions& options) const override;
    void serialize(stream::OutputStream* out, Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, Serializer* serializer) override;
    /// There is no legacy layout: both throw stream::IOException.
    void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) override;

protected:
    void _clone(Object* target, CloningOptions& options) const override;

private:
    static void readV1(Serializable* object, stream::InputStream* in, Serializer* serializer);
    EntryMap mEntries;
};

} // namespace core
} // namespace tarso
