#pragma once
#include <tmain/core/ExtraData.h>

namespace tarso {
namespace core {

/// Mix-in for classes that carry extra data. Holds a counted reference on
/// its ExtraData (null until set); the owner's serialize and deserialize
/// call the ones here.
class TMAIN_API ExtraDatable {
public:
    ExtraDatable();
    /// Shares the other's extra data.
    ExtraDatable(const ExtraDatable& other);
    ExtraDatable& operator=(const ExtraDatable& other);
    virtual ~ExtraDatable();

    ExtraData* getExtraData() { return mExtraData; }
    const ExtraData* getExtraData() const { return mExtraData; }
    bool hasExtraData() const { return mExtraData != nullptr; }
    void setExtraData(ExtraData* data);

    /// Writes the extra data as one object record (a null record when none).
    void serialize(stream::OutputStream* out, Serializer* serializer) const;
    void deserialize(stream::InputStream* in, Serializer* serializer);
    /// There is no legacy layout: throws stream::IOException.
    void deserializeLegacy(stream::InputStream* in, Serializer* serializer);

private:
    ExtraData* mExtraData;
};

} // namespace core
} // namespace tarso
