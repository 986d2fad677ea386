#include <tmain/core/ExtraData.h>

#include <tmain/core/Serializer.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace core {

const ::core::Type ExtraData::TYPE("tarso::core::ExtraData", &Object::TYPE);
const DeserializerEntry ExtraData::DESERIALIZER_LIST[1] = {{1, &ExtraData::readV1}};
TMAIN_REGISTER_CREATABLE(ExtraData);

ExtraData::ExtraData() {}

ExtraData::ExtraData(const ExtraData& other) : Object(other) {
    *this = other;
}

ExtraData& ExtraData::operator=(const ExtraData& other) {
    if (this != &other) {
        EntryMap old;
        old.swap(mEntries);
        for (const auto& e : other.mEntries) {
            e.second->addRef();
            mEntries.insert(e);
        }
        for (const auto& e : old)
            e.second->decRef();
    }
    return *this;
}

ExtraData::~ExtraData() {
    clear();
}

bool ExtraData::addEntry(const ::core::Type* type, ExtraDataEntry* entry) {
    if (!type || !entry)
        return false;
    auto r = mEntries.equal_range(type);
    for (auto it = r.first; it != r.second; ++it)
        if (it->second == entry)
            return false;
    entry->addRef();
    mEntries.emplace(type, entry);
    return true;
}

void ExtraData::clear() {
    removeEntries(range(mEntries.begin(), mEntries.end()));
}

void ExtraData::clear(const ::core::Type* type) {
    removeEntries(mEntries.equal_range(type));
}

ExtraData::iterator ExtraData::removeEntry(iterator it) {
    ExtraDataEntry* entry = it->second;
    it = mEntries.erase(it);
    entry->decRef();
    return it;
}

ExtraData::iterator ExtraData::removeEntries(range r) {
    while (r.first != r.second)
        r.first = removeEntry(r.first);
    return r.second;
}

ExtraDataEntry* ExtraData::getEntry(const ::core::Type* type) const {
    auto it = mEntries.find(type);
    return it == mEntries.end() ? nullptr : it->second;
}

Object* ExtraData::clone(CloningOptions& options) const {
    ExtraData* copy = new ExtraData();
    _clone(copy, options);
    return copy;
}

void ExtraData::_clone(Object* target, CloningOptions& options) const {
    ExtraData* t = static_cast<ExtraData*>(target);
    if (t != this) {
        t->clear();
        for (const auto& e : mEntries) {
            ::core::SmartPtr<Object> c = e.second->clone(options);
            t->addEntry(e.first, static_cast<ExtraDataEntry*>(c.get()));
        }
    }
    Object::_clone(target, options);
}

void ExtraData::serialize(stream::OutputStream* out, Serializer* serializer) const {
    checkWrite(writeRawSUID(out, mSUID), "writeSUID");
    Object::serialize(out, serializer);
    checkWrite(out->write((int)mEntries.size()), "entryCount");
    for (const auto& e : mEntries) {
        checkWrite(out->write(std::string(e.first->getName())), "entryType");
        serializer->writeObject(e.second, out, true);
    }
}

void ExtraData::readV1(Serializable* object, stream::InputStream* in, Serializer* serializer) {
    ExtraData* self = static_cast<ExtraData*>(object);
    self->Object::deserialize(in, serializer);
    int count = 0;
    self->checkRead(in->read(count) && count >= 0, "entryCount");
    // No reservation from the count: a hostile count ends at the first
    // record that is not there.
    for (int i = 0; i < count; ++i) {
        std::string typeName;
        self->checkRead(in->read(typeName), "entryType");
        const ::core::Type* type = ::core::Type::Reflection()[typeName.c_str()];
        self->checkRead(type != nullptr, "unknown entry type");
        Serializable* s = serializer->readObject(in, ExtraDataEntry::TYPE);
        self->checkRead(s != nullptr, "entry");
        ExtraDataEntry* entry = static_cast<ExtraDataEntry*>(s);
        ::core::SmartPtr<ExtraDataEntry> hold(entry);
        self->addEntry(type, entry);
    }
}

void ExtraData::deserialize(stream::InputStream* in, Serializer* serializer) {
    unsigned suid = 0;
    checkRead(readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void ExtraData::deserializeLegacy0(stream::InputStream*, Serializer*) {
    throw stream::IOException(
        "Deserializing ExtraData with legacy version, but ExtraData has no legacy version!");
}

void ExtraData::deserializeLegacy1(stream::InputStream*, Serializer*, unsigned) {
    throw stream::IOException(
        "Deserializing ExtraData with legacy version, but ExtraData has no legacy version!");
}

} // namespace core
} // namespace tarso
