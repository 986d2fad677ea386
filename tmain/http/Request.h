#pragma once
#include <tmain/http/Sentence.h>
#include <tmain/http/URL.h>

namespace tarso {
namespace http {

/// An HTTP request: a method and a URL, with the headers and body of Sentence.
class TMAIN_API Request : public Sentence {
public:
    enum Method : int { HEAD = 1, GET = 2, PUT = 3, POST = 4, CONNECT = 5 };

    Request(const URL& url, Method method);
    Request(const char* url, Method method);

    Method getMethod() const { return mMethod; }
    const URL& getURL() const { return mURL; }

    /// The word that starts the request line, with its trailing space
    /// ("GET " ...), or null for a value outside the enumeration.
    static const char* getMethodWord(int method);

private:
    Method mMethod;
    URL mURL;
};

} // namespace http
} // namespace tarso
