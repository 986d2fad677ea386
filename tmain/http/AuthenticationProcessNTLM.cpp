#include <tmain/http/AuthenticationProcessNTLM.h>

#include <cstring>
#include <tmain/foundation/Base64.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/StringUtil.h>
#include <tmain/http/Body.h>
#include <tmain/http/Request.h>
#include <tmain/http/Response.h>
#include <tmain/http/detail/NTLMSecurity.h>
#include <tmain/stream/InputStream.h>

using logging::Logger;

namespace tarso {
namespace http {

namespace {

const char* const PROXY_AUTHENTICATE = "proxy-authenticate";
const char* const PROXY_AUTHORIZATION = "proxy-authorization";
const unsigned STATUS_PROXY_AUTHENTICATION_REQUIRED = 407;

/// The base64 challenge after "NTLM" in `value`, or null when there is none.
const char* challengeIn(const char* value) {
    const char* p = text::StringUtil::containsIgnoreCase(value, "NTLM");
    if (!p)
        return nullptr;
    p += 4;
    if (*p != ' ' && *p != '\t')
        return nullptr;
    while (*p == ' ' || *p == '\t')
        ++p;
    return *p ? p : nullptr;
}

} // namespace

AuthenticationProcessNTLM::AuthenticationProcessNTLM(const char* targetHost)
    : mTargetHost(targetHost ? targetHost : ""), mSecurity(new detail::NTLMSecurity()) {}

AuthenticationProcessNTLM::~AuthenticationProcessNTLM() {
    _shutdown();
}

bool AuthenticationProcessNTLM::init(Request* request, const Response* response) {
    Logger& log = Logger::mROOT_LOGGER;
    _shutdown();
    mStatus = STATUS_NONE;
    mSuccess = false;
    if (!request)
        return false;

    int code = 0;
    if (!mSecurity->acquireCredentials(code)) {
        log.error("AuthorizationProcessNTLM::init: unable to acquire credentials");
        return false;
    }
    consumeBody(response);

    std::vector<unsigned char> token;
    std::string description;
    switch (mSecurity->initializeContext(targetFor(request), nullptr, 0, token, code, description)) {
    case detail::NTLMSecurity::RESULT_COMPLETE_NEEDED:
        log.info("AuthorizationProcessNTLM::init: SEC_I_COMPLETE_NEEDED");
        break;
    case detail::NTLMSecurity::RESULT_COMPLETE_AND_CONTINUE:
        log.warn("AuthorizationProcessNTLM::init: SEC_I_COMPLETE_AND_CONTINUE");
        break;
    case detail::NTLMSecurity::RESULT_FAILED:
        log.error("AuthorizationProcessNTLM::init: unable to intialize security context (%d)", code);
        return false;
    default:
        break;
    }
    setAuthorization(request, token);
    if (!resetBody(request, "AuthorizationProcessNTLM::init:unable to reset body data"))
        return false;
    mStatus = STATUS_CONTINUE;
    return true;
}

AuthenticationProcess::Status AuthenticationProcessNTLM::process(Request* request, Response* response,
                                                                 Connection*) {
    if (mStatus == STATUS_CONTINUE && request) {
        processChallenge(request, response);
    } else {
        Logger::mROOT_LOGGER.error("AuthorizationProcessNTLM::process:invalid status");
        finish(false);
    }
    return mStatus;
}

void AuthenticationProcessNTLM::processChallenge(Request* request, const Response* response) {
    Logger& log = Logger::mROOT_LOGGER;
    unsigned status = response ? response->getStatusCode() : 0;
    if (status != STATUS_PROXY_AUTHENTICATION_REQUIRED) {
        log.error("ProxyResolver::authenticateNTLM:invalid status code (expected %d, received %d)",
                  (int)STATUS_PROXY_AUTHENTICATION_REQUIRED, (int)status);
        finish(false);
        return;
    }
    consumeBody(response);

    // The first value that carries a challenge; without one, the first value names the failure.
    const std::vector<std::string>* values = response->getHeaders().getValues(PROXY_AUTHENTICATE);
    const char* header = values ? (*values)[0].c_str() : nullptr;
    const char* challenge = nullptr;
    if (values)
        for (const std::string& value : *values)
            if ((challenge = challengeIn(value.c_str())) != nullptr) {
                header = value.c_str();
                break;
            }
    std::vector<char> decoded(challenge ? strlen(challenge) / 4 * 3 + 3 : 0);
    int length = challenge ? text::base64_decode(challenge, decoded.data(), (unsigned)decoded.size()) : -1;
    if (length <= 0) {
        log.error("AuthorizationProcessNTLM::generateAuthorization:invalid authenticate header (%s)",
                  header ? header : "NULL");
        finish(false);
        return;
    }

    std::vector<unsigned char> token;
    std::string description;
    int code = 0;
    detail::NTLMSecurity::Result result = mSecurity->initializeContext(
        targetFor(request), decoded.data(), (unsigned)length, token, code, description);
    if (result == detail::NTLMSecurity::RESULT_FAILED || token.empty()) {
        if (description.empty())
            description = "no token";
        log.error("AuthorizationProcessNTLM::generateAuthorization: unable to build authorization (%s)",
                  description.c_str());
        finish(false);
        return;
    }
    setAuthorization(request, token);
    if (!resetBody(request, "AuthorizationProcessNTLM::generateAuthorization:unable to reset body data")) {
        finish(false);
        return;
    }
    // The authentication token is the last one NTLM sends.
    if (result == detail::NTLMSecurity::RESULT_OK || result == detail::NTLMSecurity::RESULT_COMPLETE_NEEDED)
        finish(true);
}

void AuthenticationProcessNTLM::consumeBody(const Response* response) {
    Body* body = response ? response->getBody() : nullptr;
    tarso::stream::InputStream* data = body ? body->getData() : nullptr;
    if (!data)
        return;
    char discard[1024];
    while (data->read(discard, 1, sizeof(discard)) > 0) {
    }
}

bool AuthenticationProcessNTLM::resetBody(Request* request, const char* failureMessage) {
    Body* body = request->getBody();
    tarso::stream::InputStream* data = body ? body->getData() : nullptr;
    if (!data)
        return true;
    try {
        data->seek(0, tarso::stream::Stream::SM_BEGIN);
        return true;
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error(failureMessage, &e);
    } catch (const std::exception&) {
        Logger::mROOT_LOGGER.error("%s", failureMessage);
    }
    return false;
}

void AuthenticationProcessNTLM::setAuthorization(Request* request, const std::vector<unsigned char>& token) {
    std::string encoded;
    text::base64_encode(token.data(), (unsigned)token.size(), encoded);
    request->getHeaders().set(PROXY_AUTHORIZATION, ("NTLM " + encoded).c_str());
}

std::string AuthenticationProcessNTLM::targetFor(const Request* request) const {
    return mTargetHost.empty() ? std::string(request->getURL().getHost()) : mTargetHost;
}

void AuthenticationProcessNTLM::shutdown() {
    _shutdown();
}

void AuthenticationProcessNTLM::_shutdown() {
    mSecurity->deleteContext();
    mSecurity->freeCredentials();
}

} // namespace http
} // namespace tarso
