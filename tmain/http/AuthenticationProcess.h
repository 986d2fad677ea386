#pragma once
#include <tmain/Export.h>

namespace tarso {
namespace http {

class Connection;
class Request;
class Response;

/// One proxy authentication exchange, driven by the connection: after each
/// 407 response it calls process() and reads the status and success flag.
/// - STATUS_CONTINUE: send the request again (its headers now carry the next
///   token);
/// - STATUS_FINISHED with isSuccess(): the last token is set; send the request
///   again and end the process;
/// - STATUS_FINISHED without success: give up, the 407 is the answer.
class TMAIN_API AuthenticationProcess {
public:
    enum Status { STATUS_NONE = 0, STATUS_CONTINUE = 1, STATUS_FINISHED = 2 };

    AuthenticationProcess();
    virtual ~AuthenticationProcess();
    AuthenticationProcess(const AuthenticationProcess&) = delete;
    AuthenticationProcess& operator=(const AuthenticationProcess&) = delete;

    /// Takes the next response of the exchange and prepares the request.
    /// Returns getStatus(). The base class knows no scheme: it finishes with
    /// failure.
    virtual Status process(Request* request, Response* response, Connection* connection);
    /// Releases whatever the exchange holds. The base class holds nothing.
    virtual void shutdown();

    Status getStatus() const { return mStatus; }
    bool isSuccess() const { return mSuccess; }

protected:
    /// Sets STATUS_FINISHED with the given outcome.
    void finish(bool success) {
        mStatus = STATUS_FINISHED;
        mSuccess = success;
    }

    Status mStatus;
    bool mSuccess;
};

} // namespace http
} // namespace tarso
