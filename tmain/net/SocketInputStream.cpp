#include <tmain/foundation/Exception.h>
#include <tmain/net/SocketInputStream.h>
#include <tmain/net/StreamSocket.h>

#include <climits>

namespace net {

SocketInputStream::SocketInputStream(StreamSocket* socket) : mSocket(socket), mOpen(true), mPosition(0) {}

SocketInputStream::~SocketInputStream() {}

void SocketInputStream::open(EOpenMode) {
    if (!mOpen && mSocket && mSocket->isConnected()) {
        mOpen = true;
        mPosition = 0;
    }
}

void SocketInputStream::close() {
    mOpen = false;
}

bool SocketInputStream::isOpen() const {
    return mOpen && mSocket && (mSocket->getProtocol() == TP_UDP || mSocket->isConnected());
}

bool SocketInputStream::hasError() const {
    return !mSocket || mSocket->getError() != 0;
}

unsigned SocketInputStream::available() const {
    return mSocket && mSocket->pollReadable(0) ? 1 : 0;
}

unsigned SocketInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!isOpen())
        throw ::core::IllegalStateException("Stream no yet opened");
    unsigned long long wanted = (unsigned long long)size * count;
    int n = mSocket->read(buffer, wanted > INT_MAX ? INT_MAX : (int)wanted);
    mPosition += (unsigned)n;
    return (unsigned)n;
}

unsigned SocketInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("SocketInputStream::readLine");
}

bool SocketInputStream::eof() const {
    return !mSocket || !(mSocket->getProtocol() == TP_UDP || mSocket->isConnected());
}

std::istream* SocketInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("SocketInputStream::getSTLStream");
}

} // namespace net
