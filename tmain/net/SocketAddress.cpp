#include <tmain/net/SocketAddress.h>
#include <tmain/net/detail/SocketNative.h>

#include <cstring>
#include <vector>

namespace net {

const int SocketAddress::CAPACITY;

SocketAddress::SocketAddress() : mPort(0), mLength(CAPACITY) {
    memset(mAddress, 0, sizeof(mAddress));
}

SocketAddress::SocketAddress(const char* host, unsigned port)
    : mHost(host ? host : ""), mPort(port), mLength(0) {
    memset(mAddress, 0, sizeof(mAddress));
}

SocketAddress::SocketAddress(const SocketAddress& other) {
    copyFrom(other);
}

SocketAddress::SocketAddress(SocketAddress&& other) {
    copyFrom(other);
}

SocketAddress& SocketAddress::operator=(const SocketAddress& other) {
    if (this != &other)
        copyFrom(other);
    return *this;
}

SocketAddress& SocketAddress::operator=(SocketAddress&& other) {
    if (this != &other)
        copyFrom(other);
    return *this;
}

void SocketAddress::copyFrom(const SocketAddress& other) {
    mHost = other.mHost;
    mPort = other.mPort;
    memcpy(mAddress, other.mAddress, sizeof(mAddress));
    mLength = other.mLength;
}

void SocketAddress::set(const char* host, unsigned short port) {
    mPort = port;
    setHost(host);
}

void SocketAddress::setHost(const char* host) {
    if (!host)
        host = "";
    if (mHost != host) {
        mHost = host;
        mLength = 0;
    }
}

void SocketAddress::setPort(unsigned port) {
    mPort = port;
}

bool SocketAddress::resolve() const {
    std::vector<detail::AddressInfo> results;
    if (detail::resolve(mHost.c_str(), mPort, false, detail::KIND_ANY, results) != 0 || results.empty())
        return false;
    memcpy(mAddress, results[0].address, sizeof(mAddress));
    mLength = results[0].length;
    return true;
}

const char* SocketAddress::getPrintableAddress(std::string& out) const {
    if ((isResolved() || resolve()) && detail::numericHost(mAddress, mLength, out))
        return out.c_str();
    out = mHost;
    return out.c_str();
}

void SocketAddress::setNativeAddress(const void* address, int length, bool takePort) {
    if (length < 0)
        length = 0;
    if (length > CAPACITY)
        length = CAPACITY;
    memset(mAddress, 0, sizeof(mAddress));
    if (address && length > 0)
        memcpy(mAddress, address, (size_t)length);
    mLength = length;
    if (takePort)
        mPort = detail::addressPort(mAddress, mLength);
}

} // namespace net
