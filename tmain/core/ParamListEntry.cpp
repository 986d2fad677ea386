#include <tmain/core/ParamListEntry.h>

#include <tmain/core/ObjectFactory.h>
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace core {

const ::core::Type ParamListEntry::TYPE("tarso::core::ParamListEntry", &ExtraDataEntry::TYPE);
const DeserializerEntry ParamListEntry::DESERIALIZER_LIST[1] = {{1, &ParamListEntry::readV1}};
const char* const ParamListEntry::NAME = "ParamListEntry";
TMAIN_REGISTER_CREATABLE(ParamListEntry);

ParamListEntry::ParamListEntry() : ExtraDataEntry(NAME), mList(new ParamList()) {}

ParamListEntry::ParamListEntry(ParamList* list)
    : ExtraDataEntry(NAME), mList(list ? list : new ParamList()) {}

ParamListEntry::ParamListEntry(const ParamListEntry& other)
    : ExtraDataEntry(other), mList(new ParamList(*other.mList)) {}

ParamListEntry::~ParamListEntry() {
    delete mList;
}

Object* ParamListEntry::clone(CloningOptions& options) const {
    ParamListEntry* copy = new ParamListEntry();
    _clone(copy, options);
    return copy;
}

void ParamListEntry::_clone(Object* target, CloningOptions& options) const {
    ParamListEntry* t = static_cast<ParamListEntry*>(target);
    if (t != this) {
        t->mList->clear();
        for (const auto& p : *mList)
            t->mList->push_back(p ? new Parameter(*p) : nullptr);
    }
    ExtraDataEntry::_clone(target, options);
}

void ParamListEntry::serialize(stream::OutputStream*, Serializer*) const {
    throw ::core::UnsupportedOperationException("Serialize for ParamListEntry is not yet coded");
}

void ParamListEntry::readV1(Serializable*, stream::InputStream*, Serializer*) {
    throw ::core::UnsupportedOperationException("Deserializer_1 for ParamListEntry is not yet coded");
}

void ParamListEntry::deserialize(stream::InputStream* in, Serializer* serializer) {
    unsigned suid = 0;
    checkRead(readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void ParamListEntry::deserializeLegacy0(stream::InputStream*, Serializer*) {
    throw ::core::UnsupportedOperationException("deserializeLegacy0 for ParamListEntry is not yet coded");
}

void ParamListEntry::deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) {
    getDeserializer(serialUID)(this, in, serializer);
}

} // namespace core
} // namespace tarso
