#pragma once
#include <tmain/core/ExtraDataEntry.h>
#include <tmain/core/Parameter.h>
#include <vector>

namespace tarso {
namespace core {

/// A parameter list attached as extra data. Its serialization is not
/// written yet: serialize and both readers throw
/// core::UnsupportedOperationException saying so.
class TMAIN_API ParamListEntry : public ExtraDataEntry {
    TMAIN_TYPE()
    TMAIN_SERIAL_IDENTITY(1, 1)
public:
    typedef std::vector<::core::SmartPtr<Parameter>> ParamList;
    /// "ParamListEntry", the entry's name.
    static const char* const NAME;

    ParamListEntry();
    /// Takes ownership of the list (null: an empty one).
    explicit ParamListEntry(ParamList* list);
    ParamListEntry(const ParamListEntry& other);
    ~ParamListEntry() override;

    ParamList* getParamList() { return mList; }
    const ParamList* getParamList() const { return mList; }

    using Object::clone;
    /// Clones every parameter.
    Object* clone(CloningOptions& options) const override;
    void serialize(stream::OutputStream* out, Serializer* serializer) const override;
    void deserialize(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy0(stream::InputStream* in, Serializer* serializer) override;
    void deserializeLegacy1(stream::InputStream* in, Serializer* serializer, unsigned serialUID) override;

protected:
    void _clone(Object* target, CloningOptions& options) const override;

private:
    static void readV1(Serializable* object, stream::InputStream* in, Serializer* serializer);
    ParamList* mList;
};

} // namespace core
} // namespace tarso
