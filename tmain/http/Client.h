#pragma once
#include <tmain/http/Connection.h>

namespace tarso {
namespace http {

/// Owner of one connection, made on first use.
class TMAIN_API Client {
public:
    Client();
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Sends the request on the client's connection; the caller owns the response.
    Response* send(Request* request);
    Connection* getConnection() { return mConnection; }

private:
    void ensureConnection();
    Connection* mConnection;
};

} // namespace http
} // namespace tarso
