#pragma once
#include <memory>
#include <string>
#include <tmain/http/AuthenticationProcess.h>
#include <vector>

namespace tarso {
namespace http {

namespace detail {
class NTLMSecurity;
}

/// NTLM proxy authentication with the current user's credentials, through the
/// platform's security service. init() answers the first 407 with a
/// negotiation token; process() answers the proxy's challenge with the
/// authentication token. Every failure is logged and ends the exchange with
/// failure; only stream errors while reading a response body are thrown.
class TMAIN_API AuthenticationProcessNTLM : public AuthenticationProcess {
public:
    /// `targetHost` names the proxy, the service the context is made for
    /// ("HTTP@<host>"); null or empty means the host of the request's URL.
    explicit AuthenticationProcessNTLM(const char* targetHost = nullptr);
    ~AuthenticationProcessNTLM() override;

    /// Acquires the credentials, reads away the 407 body, and sets the
    /// negotiation token as the request's "proxy-authorization". True when
    /// the process is then in STATUS_CONTINUE.
    bool init(Request* request, const Response* response);
    /// Answers the proxy's challenge (a 407 whose "proxy-authenticate" holds
    /// "NTLM <base64>") with the authentication token.
    Status process(Request* request, Response* response, Connection* connection) override;
    /// Deletes the security context and frees the credentials.
    void shutdown() override;

private:
    void processChallenge(Request* request, const Response* response);
    /// Reads the response body until a read returns 0 and discards it.
    void consumeBody(const Response* response);
    /// Moves the request body's data back to its start so that it is sent again.
    bool resetBody(Request* request, const char* failureMessage);
    void setAuthorization(Request* request, const std::vector<unsigned char>& token);
    std::string targetFor(const Request* request) const;
    void _shutdown();

    std::string mTargetHost;
    std::unique_ptr<detail::NTLMSecurity> mSecurity;
};

} // namespace http
} // namespace tarso
