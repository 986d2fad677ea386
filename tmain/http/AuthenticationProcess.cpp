#include <tmain/http/AuthenticationProcess.h>

namespace tarso {
namespace http {

AuthenticationProcess::AuthenticationProcess() : mStatus(STATUS_NONE), mSuccess(false) {}

AuthenticationProcess::~AuthenticationProcess() {}

AuthenticationProcess::Status AuthenticationProcess::process(Request*, Response*, Connection*) {
    finish(false);
    return mStatus;
}

void AuthenticationProcess::shutdown() {}

} // namespace http
} // namespace tarso
