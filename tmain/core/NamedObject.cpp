#include <tmain/core/NamedObject.h>

#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace core {

const ::core::Type NamedObject::TYPE("tarso::core::NamedObject", &Object::TYPE);

const DeserializerEntry NamedObject::DESERIALIZER_LIST[2] = {{1, &NamedObject::readV2},
                                                             {2, &NamedObject::readV2}};

NamedObject::NamedObject(const char* name) : mName(name ? name : "") {}

NamedObject::NamedObject(const NamedObject& other) : Object(other), mName(other.mName) {}

NamedObject& NamedObject::operator=(const NamedObject& other) {
    if (this != &other)
        mName = other.mName;
    return *this;
}

std::string NamedObject::toString() const {
    return Object::toString() + "<name='" + mName + "'>";
}

Object* NamedObject::clone(CloningOptions& options) const {
    NamedObject* copy = new NamedObject();
    _clone(copy, options);
    return copy;
}

void NamedObject::_clone(Object* target, CloningOptions& options) const {
    if (target != this)
        static_cast<NamedObject*>(target)->mName = mName;
    Object::_clone(target, options);
}

void NamedObject::checkWrite(bool ok, const char* field) const {
    if (ok)
        return;
    if (field)
        throw stream::IOException("Error serializing object [%s:%s@%8X]: %s", getType().getName(),
                                  mName.c_str(), messageAddress(), field);
    throw stream::IOException("Error serializing object [%s:%s@%8X]", getType().getName(), mName.c_str(),
                              messageAddress());
}

void NamedObject::checkRead(bool ok, const char* field) const {
    if (ok)
        return;
    if (field)
        throw stream::IOException("Error deserializing object [%s:%s@%8X]: %s", getType().getName(),
                                  mName.c_str(), messageAddress(), field);
    throw stream::IOException("Error deserializing object [%s:%s@%8X]", getType().getName(), mName.c_str(),
                              messageAddress());
}

void NamedObject::writeSUID(stream::OutputStream* out) const {
    checkWrite(writeRawSUID(out, mSUID), "writeSUID");
}

void NamedObject::serialize(stream::OutputStream* out, Serializer* serializer) const {
    writeSUID(out);
    Object::serialize(out, serializer);
    checkWrite(out->write(mName), "mName");
}

void NamedObject::readV2(Serializable* object, stream::InputStream* in, Serializer* serializer) {
    NamedObject* self = static_cast<NamedObject*>(object);
    self->Object::deserialize(in, serializer);
    self->checkRead(in->read(self->mName), "mName");
}

void NamedObject::deserialize(stream::InputStream* in, Serializer* serializer) {
    unsigned suid = 0;
    checkRead(readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void NamedObject::deserializeLegacy0(stream::InputStream* in, Serializer* serializer) {
    Object::deserializeLegacy0(in, serializer);
    checkRead(in->read(mName), "mName");
}

void NamedObject::deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) {
    getDeserializer(serialUID)(this, in, serializer);
}

} // namespace core
} // namespace tarso
