#pragma once
#include <tmain/foundation/Type.h>

namespace tarso {
namespace stream {
class InputStream;
class OutputStream;
} // namespace stream

namespace core {

class Serializer;
class Serializable;

/// Reads the rest of one class's data after its serial version number.
typedef void Deserializer(Serializable* object, stream::InputStream* in, Serializer* serializer);

/// One row of a class's table of readers: a serial version number and its reader.
struct DeserializerEntry {
    unsigned suid;
    Deserializer* deserializer;
};

/// Something that can be written to and read from an object stream.
class TMAIN_API Serializable {
public:
    virtual ~Serializable();
    virtual void serialize(stream::OutputStream* out, Serializer* serializer) const = 0;
    virtual void deserialize(stream::InputStream* in, Serializer* serializer) = 0;
    /// Reads data written with format version 1.0.0.0 (no serial version numbers).
    virtual void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) = 0;
    /// Reads data written with format version 1.0.0.1; the serial version
    /// number comes from the record header.
    virtual void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) = 0;
    virtual const ::core::Type& getType() const = 0;
    virtual unsigned getSUID() const = 0;

    /// True when getType() is `type` or derives from it.
    bool instanceOf(const ::core::Type& type) const { return getType().instanceOf(type); }
    /// The same test against the other object's dynamic type.
    bool instanceOf(const Serializable* other) const {
        return other && getType().instanceOf(other->getType());
    }

    /// Throw stream::IOException "Error serializing object [%s@%8X]: %s" /
    /// "Error deserializing object [%s@%8X]: %s" when ok is false.
    void checkWrite(bool ok, const char* field) const;
    void checkRead(bool ok, const char* field) const;

protected:
    /// The address messages print: the whole object, not this sub-object.
    unsigned messageAddress() const;
};

} // namespace core
} // namespace tarso

/// The serial identity of a serializable class: mSUID, SUID(), getSUID(),
/// DESERIALIZER_COUNT, DESERIALIZER_LIST and the lookup of a reader.
#define TMAIN_SERIAL_IDENTITY(suidValue, count)                                                              \
public:                                                                                                      \
    static constexpr unsigned mSUID = suidValue;                                                             \
    static unsigned SUID() {                                                                                 \
        return mSUID;                                                                                        \
    }                                                                                                        \
    unsigned getSUID() const override {                                                                      \
        return mSUID;                                                                                        \
    }                                                                                                        \
    static constexpr unsigned DESERIALIZER_COUNT = count;                                                    \
    static const ::tarso::core::DeserializerEntry DESERIALIZER_LIST[count];                                  \
                                                                                                             \
private:                                                                                                     \
    static ::tarso::core::Deserializer* getDeserializer(unsigned suid) {                                     \
        return ::tarso::core::findDeserializer(DESERIALIZER_LIST, DESERIALIZER_COUNT, suid);                 \
    }                                                                                                        \
                                                                                                             \
public:

namespace tarso {
namespace core {
/// Linear search of a reader table; no match gives the last entry's reader.
TMAIN_API Deserializer* findDeserializer(const DeserializerEntry* list, unsigned count, unsigned suid);
/// Writes a class's serial version number: four raw bytes, never swapped.
TMAIN_API bool writeRawSUID(stream::OutputStream* out, unsigned suid);
/// Reads four raw bytes as a serial version number.
TMAIN_API bool readRawSUID(stream::InputStream* in, unsigned& suid);
} // namespace core
} // namespace tarso
