#include <tmain/core/Serializable.h>

#include <cstring>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace core {

Serializable::~Serializable() {}

unsigned Serializable::messageAddress() const {
    return (unsigned)(uintptr_t) dynamic_cast<const void*>(this);
}

void Serializable::checkWrite(bool ok, const char* field) const {
    if (ok)
        return;
    if (field)
        throw stream::IOException("Error serializing object [%s@%8X]: %s", getType().getName(),
                                  messageAddress(), field);
    throw stream::IOException("Error serializing object [%s@%8X]", getType().getName(), messageAddress());
}

void Serializable::checkRead(bool ok, const char* field) const {
    if (ok)
        return;
    if (field)
        throw stream::IOException("Error deserializing object [%s@%8X]: %s", getType().getName(),
                                  messageAddress(), field);
    throw stream::IOException("Error deserializing object [%s@%8X]", getType().getName(), messageAddress());
}

Deserializer* findDeserializer(const DeserializerEntry* list, unsigned count, unsigned suid) {
    for (unsigned i = 0; i < count; ++i)
        if (list[i].suid == suid)
            return list[i].deserializer;
    return list[count - 1].deserializer;
}

// Serial version numbers are raw host (little-endian) bytes whatever the
// stream's byte order: they bypass the typed, swapping writes.
bool writeRawSUID(stream::OutputStream* out, unsigned suid) {
    unsigned char b[4] = {(unsigned char)suid, (unsigned char)(suid >> 8), (unsigned char)(suid >> 16),
                          (unsigned char)(suid >> 24)};
    return out->write(b, 1, 4) == 4;
}

bool readRawSUID(stream::InputStream* in, unsigned& suid) {
    unsigned char b[4];
    if (in->read(b, 1, 4) != 4)
        return false;
    suid = (unsigned)b[0] | ((unsigned)b[1] << 8) | ((unsigned)b[2] << 16) | ((unsigned)b[3] << 24);
    return true;
}

} // namespace core
} // namespace tarso
