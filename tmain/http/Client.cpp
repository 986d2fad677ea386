#include <tmain/http/Client.h>

namespace tarso {
namespace http {

Client::Client() : mConnection(nullptr) {}

Client::~Client() {
    delete mConnection;
}

void Client::ensureConnection() {
    if (!mConnection)
        mConnection = new Connection(nullptr, 1024);
}

Response* Client::send(Request* request) {
    ensureConnection();
    return mConnection->process(request);
}

} // namespace http
} // namespace tarso
