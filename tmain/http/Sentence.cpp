#include <tmain/http/Sentence.h>

#include <tmain/http/Body.h>
#include <tmain/http/Header.h>

namespace tarso {
namespace http {

Sentence::Sentence() : mBody(nullptr) {}

Sentence::Sentence(const Sentence& other) : mHeaders(other.mHeaders), mBody(nullptr) {
    setBody(other.mBody);
}

Sentence& Sentence::operator=(const Sentence& other) {
    if (this != &other) {
        mHeaders = other.mHeaders;
        setBody(other.mBody);
    }
    return *this;
}

Sentence::~Sentence() {
    if (mBody)
        mBody->decRef();
}

void Sentence::setBody(Body* body) {
    if (body)
        body->addRef();
    Body* old = mBody;
    mBody = body;
    if (old)
        old->decRef();
}

const char* Sentence::getContentType() const {
    return mHeaders.get(Header::CONTENT_TYPE);
}

void Sentence::setContentType(const char* contentType) {
    mHeaders.set(Header::CONTENT_TYPE, contentType);
}

unsigned Sentence::getContentLength() const {
    return mBody ? mBody->getSize() : 0;
}

} // namespace http
} // namespace tarso
