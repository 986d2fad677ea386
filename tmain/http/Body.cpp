#include <tmain/http/Body.h>

#include <tmain/stream/InputStream.h>

namespace tarso {
namespace http {

Body::Body(tarso::stream::InputStream* data, unsigned size, bool ownsData)
    : mData(data), mSize(size), mSizeOK(true), mOwnsData(ownsData) {}

Body::~Body() {
    if (mOwnsData)
        delete mData;
}

void Body::setData(tarso::stream::InputStream* data) {
    if (data == mData)
        return;
    if (mOwnsData)
        delete mData;
    mData = data;
}

unsigned Body::getSize() const {
    if (mSize == 0 && mSizeOK && mData) {
        try {
            unsigned position = mData->tell();
            mData->seek(0, tarso::stream::Stream::SM_END);
            unsigned size = mData->tell();
            mData->seekTo(position);
            mSize = size;
        } catch (...) {
            mSize = 0;
            mSizeOK = false;
        }
    }
    return mSize;
}

} // namespace http
} // namespace tarso
