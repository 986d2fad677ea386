#pragma once
#include <tmain/core/NamedObject.h>

namespace tarso {
namespace core {

/// Base of the typed attachments an ExtraData holds; concrete entries derive from it.
class TMAIN_API ExtraDataEntry : public NamedObject {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(1, 1)
public:
    ~ExtraDataEntry() override;
    void serialize(stream::OutputStream* out, Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, Serializer* serializer) override;
    /// Entries have no legacy layout: both throw stream::IOException.
    void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) override;

protected:
    explicit ExtraDataEntry(const char* name);
    ExtraDataEntry(const ExtraDataEntry& other) = default;

private:
    static void readV1(Serializable* object, stream::InputStream* in, Serializer* serializer);
};

} // namespace core
} // namespace tarso
