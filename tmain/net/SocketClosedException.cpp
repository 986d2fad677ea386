#include <tmain/net/SocketClosedException.h>

namespace net {

const ::core::Type SocketClosedException::TYPE("net::SocketClosedException", &::core::Exception::TYPE);

SocketClosedException::SocketClosedException(Socket* socket, const char* format, ...) : mSocket(socket) {
    va_list args;
    va_start(args, format);
    setMessageV(format, args);
    va_end(args);
}

} // namespace net
