#include <tmain/core/Object.h>

#include <cstring>
#include <sstream>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace core {

const ::core::Type Object::TYPE("tarso::core::Object");

const DeserializerEntry Object::DESERIALIZER_LIST[2] = {{1, &Object::readV2}, {2, &Object::readV2}};

Object::~Object() {}

std::string Object::toString() const {
    std::ostringstream s;
    s << getType().getName() << "@[" << static_cast<const void*>(this) << "]";
    return s.str();
}

Object* Object::clone(CloningOptions&) const {
    throw ::core::Exception("Unsupported cloning operation for %s instance ", getType().getName());
}

Object* Object::clone() const {
    Object* copy;
    {
        CloningOptions options;
        copy = clone(options);
    }
    return copy;
}

void Object::_clone(Object* target, CloningOptions& options) const {
    options.addCloningPair(this, target);
}

void Object::writeSUID(stream::OutputStream* out) const {
    checkWrite(writeRawSUID(out, mSUID), "writeSUID");
}

void Object::serialize(stream::OutputStream* out, Serializer*) const {
    writeSUID(out);
    const char* name = getType().getName();
    unsigned length = (unsigned)strlen(name);
    checkWrite(out->write(length) && out->write(name, length), "type");
}

// The type name is informative only (the record header already chose the
// class), so it is read past without being kept.
void Object::readV2(Serializable* object, stream::InputStream* in, Serializer*) {
    unsigned length = 0;
    object->checkRead(in->read(length), "type");
    char skip[256];
    while (length > 0) {
        unsigned n = length < sizeof(skip) ? length : (unsigned)sizeof(skip);
        object->checkRead(in->read(skip, 1, n) == n, "type");
        length -= n;
    }
}

void Object::deserialize(stream::InputStream* in, Serializer* serializer) {
    unsigned suid = 0;
    checkRead(readRawSUID(in, suid), "readSUID");
    getDeserializer(suid)(this, in, serializer);
}

void Object::deserializeLegacy0(stream::InputStream* in, Serializer* serializer) {
    readV2(this, in, serializer);
}

void Object::deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) {
    getDeserializer(serialUID)(this, in, serializer);
}

} // namespace core
} // namespace tarso
