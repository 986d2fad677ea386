#pragma once
#include <tmain/http/HeaderMap.h>

namespace tarso {
namespace http {

class Body;

/// Base of HTTP messages: headers and an optional, reference-counted body.
class TMAIN_API Sentence {
public:
    Sentence();
    /// Copies the headers and shares the body.
    Sentence(const Sentence& other);
    Sentence& operator=(const Sentence& other);
    /// Releases the body.
    virtual ~Sentence();

    HeaderMap& getHeaders() { return mHeaders; }
    const HeaderMap& getHeaders() const { return mHeaders; }

    Body* getBody() const { return mBody; }
    /// Takes a reference to `body` (may be null) and releases the previous one.
    void setBody(Body* body);
    bool hasBody() const { return mBody != nullptr; }

    /// The first "content-type" value, or null.
    const char* getContentType() const;
    /// Sets "content-type", replacing earlier values.
    void setContentType(const char* contentType);
    /// The body's size, 0 without a body.
    unsigned getContentLength() const;

private:
    HeaderMap mHeaders;
    Body* mBody;
};

} // namespace http
} // namespace tarso
