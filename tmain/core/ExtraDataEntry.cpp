#include <tmain/core/ExtraDataEntry.h>

#include <tmain/stream/IOException.h>

namespace tarso {
namespace core {

const ::core::Type ExtraDataEntry::TYPE("tarso::core::ExtraDataEntry", &NamedObject::TYPE);
const DeserializerEntry ExtraDataEntry::DESERIALIZER_LIST[1] = {{1, &ExtraDataEntry::readV1}};

ExtraDataEntry::ExtraDataEntry(const char* name) : NamedObject(name) {}
ExtraDataEntry::~ExtraDataEntry() {}

void ExtraDataEntry::serialize(stream::OutputStream* out, Serializer* serializer) const {
    checkWrite(writeRawSUID(out, mSUID), "writeSUID");
    NamedObject::serialize(out, serializer);
}

void ExtraDataEntry::readV1(Serializable* object, stream::InputStream* in, Serializer* serializer) {
    static_cast<ExtraDataEntry*>(object)->NamedObject::deserialize(in, serializer);
}

void ExtraDataEntry::deserialize(stream::InputStream* in, Serializer* serializer) {
    unsigned suid = 0;
    checkRead(readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void ExtraDataEntry::deserializeLegacy0(stream::InputStream*, Serializer*) {
    throw stream::IOException(
        "Deserializing ExtraDataEntry with legacy version, but ExtraData has no legacy version!");
}

void ExtraDataEntry::deserializeLegacy1(stream::InputStream*, Serializer*, unsigned) {
    throw stream::IOException(
        "Deserializing ExtraDataEntry with legacy version, but ExtraData has no legacy version!");
}

} // namespace core
} // namespace tarso
