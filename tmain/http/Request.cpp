#include <tmain/http/Request.h>

namespace tarso {
namespace http {

Request::Request(const URL& url, Method method) : mMethod(method), mURL(url) {}

Request::Request(const char* url, Method method) : mMethod(method), mURL(url) {}

const char* Request::getMethodWord(int method) {
    switch (method) {
    case HEAD:
        return "HEAD ";
    case GET:
        return "GET ";
    case PUT:
        return "PUT ";
    case POST:
        return "POST ";
    case CONNECT:
        return "CONNECT ";
    default:
        return nullptr;
    }
}

} // namespace http
} // namespace tarso
