#include <tmain/http/ResponseInputStream.h>

#include <tmain/foundation/Exception.h>

namespace tarso {
namespace http {

ResponseInputStream::ResponseInputStream(tarso::stream::InputStream* source, unsigned length, bool ownsSource)
    : mOpen(source && source->isOpen()), mSource(source), mLength(length), mRead(0), mOwnsSource(ownsSource) {
    if (!source)
        throw ::core::IllegalArgumentException("ResponseInputStream: no source stream");
}

ResponseInputStream::~ResponseInputStream() {
    if (mOwnsSource)
        delete mSource;
}

void ResponseInputStream::open(EOpenMode mode) {
    if (!mSource->isOpen())
        mSource->open(mode);
    mOpen = true;
}

bool ResponseInputStream::hasError() const {
    return mSource->hasError();
}

unsigned ResponseInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw ::core::IllegalStateException("ResponseInputStream is closed");
    unsigned long long wanted = (unsigned long long)size * count;
    if (wanted > mLength - mRead)
        wanted = mLength - mRead;
    if (wanted == 0)
        return 0;
    unsigned got = mSource->read(buffer, 1, (unsigned)wanted);
    mRead += got;
    return got;
}

unsigned ResponseInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("ResponseInputStream::readLine");
}

std::istream* ResponseInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("ResponseInputStream::getSTLStream");
}

} // namespace http
} // namespace tarso
