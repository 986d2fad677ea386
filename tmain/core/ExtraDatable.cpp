#include <tmain/core/ExtraDatable.h>

#include <tmain/core/Serializer.h>
#include <tmain/stream/IOException.h>

namespace tarso {
namespace core {

ExtraDatable::ExtraDatable() : mExtraData(nullptr) {}

ExtraDatable::ExtraDatable(const ExtraDatable& other) : mExtraData(nullptr) {
    setExtraData(other.mExtraData);
}

ExtraDatable& ExtraDatable::operator=(const ExtraDatable& other) {
    setExtraData(other.mExtraData);
    return *this;
}

ExtraDatable::~ExtraDatable() {
    setExtraData(nullptr);
}

void ExtraDatable::setExtraData(ExtraData* data) {
    if (data)
        data->addRef();
    ExtraData* old = mExtraData;
    mExtraData = data;
    if (old)
        old->decRef();
}

void ExtraDatable::serialize(stream::OutputStream* out, Serializer* serializer) const {
    serializer->writeObject(mExtraData, out, true);
}

void ExtraDatable::deserialize(stream::InputStream* in, Serializer* serializer) {
    ::core::SmartPtr<ExtraData> data(static_cast<ExtraData*>(serializer->readObject(in, ExtraData::TYPE)));
    setExtraData(data);
}

void ExtraDatable::deserializeLegacy(stream::InputStream*, Serializer*) {
    throw stream::IOException("Deserialize legacy from a non legacy object (Extra datable)");
}

} // namespace core
} // namespace tarso
