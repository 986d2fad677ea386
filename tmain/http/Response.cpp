#include <tmain/http/Response.h>

namespace tarso {
namespace http {

Response::Response() : mStatus{0, std::string()} {}

Response::Response(const Status& status) : mStatus(status) {}

void Response::setStatus(unsigned code, const char* message) {
    mStatus.code = code;
    mStatus.message = message ? message : "";
}

} // namespace http
} // namespace tarso
