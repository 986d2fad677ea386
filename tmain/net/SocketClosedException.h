#pragma once
#include <tmain/foundation/Exception.h>

namespace net {

class Socket;

/// The peer of a TCP socket closed its side: a read found the end of the
/// connection. Carries the socket; the message is usually empty.
class TMAIN_API SocketClosedException : public ::core::Exception {
    TMAIN_EXCEPTION_BODY(SocketClosedException)
    /// Formats the message printf-style; a null format leaves it empty.
    SocketClosedException(Socket* socket, const char* format, ...) TMAIN_PRINTF(3, 4);

    /// The socket whose peer closed (not owned).
    Socket* getSocket() const { return mSocket; }

private:
    Socket* mSocket;
};

} // namespace net
