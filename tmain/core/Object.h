#pragma once
#include <string>
#include <tmain/core/CloningOptions.h>
#include <tmain/core/Serializable.h>
#include <tmain/foundation/IRefCount.h>

namespace tarso {
namespace core {

/// Base of every persistent, shareable thing: reference counted, serializable
/// and deep-copyable with clone().
class TMAIN_API Object : public ::core::IRefCount, public Serializable {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(2, 2)
public:
    Object() {}
    Object(const Object&) : ::core::IRefCount(), Serializable() {}
    Object& operator=(const Object&) { return *this; }
    ~Object() override;

    /// The dynamic type's name, "@[", the address, "]".
    virtual std::string toString() const;
    /// Default: throws core::Exception "Unsupported cloning operation for %s instance ".
    virtual Object* clone(CloningOptions& options) const;
    /// Clones with fresh options (running their post processors) and returns the copy.
    Object* clone() const;

    void serialize(stream::OutputStream* out, Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) override;

protected:
    /// Records the pair (this, target); overrides copy their fields first.
    virtual void _clone(Object* target, CloningOptions& options) const;

private:
    void writeSUID(stream::OutputStream* out) const;
    static void readV2(Serializable* object, stream::InputStream* in, Serializer* serializer);
};

} // namespace core
} // namespace tarso
