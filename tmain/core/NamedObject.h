#pragma once
#include <tmain/core/Object.h>

namespace tarso {
namespace core {

/// An Object with a name.
class TMAIN_API NamedObject : public Object {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(2, 2)
public:
    explicit NamedObject(const char* name = "");
    NamedObject(const NamedObject& other);
    NamedObject& operator=(const NamedObject& other);

    void setName(const char* name) { mName = name ? name : ""; }
    const char* getName() const { return mName.c_str(); }

    /// Object::toString() followed by "<name='", the name, "'>".
    std::string toString() const override;
    using Object::clone;
    Object* clone(CloningOptions& options) const override;

    void serialize(stream::OutputStream* out, Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) override;

protected:
    void _clone(Object* target, CloningOptions& options) const override;
    /// Like Serializable's checks, with the name in the message.
    virtual void checkWrite(bool ok, const char* field) const;
    virtual void checkRead(bool ok, const char* field) const;

private:
    void writeSUID(stream::OutputStream* out) const;
    static void readV2(Serializable* object, stream::InputStream* in, Serializer* serializer);

    std::string mName;
};

} // namespace core
} // namespace tarso
