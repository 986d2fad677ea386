#include <tmain/foundation/Exception.h>
#include <tmain/net/SocketOutputStream.h>
#include <tmain/net/StreamSocket.h>

#include <climits>

namespace net {

SocketOutputStream::SocketOutputStream(StreamSocket* socket) : mSocket(socket), mOpen(true), mPosition(0) {}

SocketOutputStream::~SocketOutputStream() {}

void SocketOutputStream::open(EOpenMode) {
    if (!mOpen && mSocket && mSocket->isConnected()) {
        mOpen = true;
        mPosition = 0;
    }
}

void SocketOutputStream::close() {
    mOpen = false;
}

bool SocketOutputStream::isOpen() const {
    return mSocket && (mSocket->getProtocol() == TP_UDP || mSocket->isConnected());
}

bool SocketOutputStream::hasError() const {
    return !mSocket || mSocket->getError() != 0;
}

unsigned SocketOutputStream::write(const void* buffer, unsigned size, unsigned count) {
    if (!isOpen())
        throw ::core::IllegalStateException("Stream not yet opened");
    unsigned long long total = (unsigned long long)size * count;
    unsigned long long sum = 0;
    int last = 0;
    while (sum < total) {
        unsigned long long left = total - sum;
        last = mSocket->write(buffer, left > INT_MAX ? INT_MAX : (int)left);
        sum += (unsigned)last;
        if (mSocket->getError() != 0)
            break;
        // A non-blocking socket that takes nothing would otherwise spin here
        // for as long as the peer does not read.
        if (last == 0 && !mSocket->pollWritable(-1))
            break;
    }
    mPosition += (unsigned)last;
    return (unsigned)last;
}

void SocketOutputStream::flush() {
    static const char nothing = 0;
    if (mSocket)
        mSocket->write(&nothing, 0);
}

std::ostream* SocketOutputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("SocketOutputStream::getSTLStream");
}

void SocketOutputStream::reset() {
    close();
    open(OM_WRITE | OM_BINARY);
}

} // namespace net
