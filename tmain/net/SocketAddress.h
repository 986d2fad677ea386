#pragma once
#include <string>
#include <tmain/Export.h>

namespace net {

/// A host and port with a lazily resolved native address (an IPv4 or IPv6
/// socket address of up to 128 bytes). A plain value: copies carry the
/// resolution with them.
class TMAIN_API SocketAddress {
public:
    /// Size of the native address buffer.
    static const int CAPACITY = 128;

    /// Empty host, port 0, counted as resolved with the full 128 bytes, so it
    /// can serve as the buffer that receives a peer's address.
    SocketAddress();
    /// Unresolved; a null host is the empty string.
    SocketAddress(const char* host, unsigned port);
    SocketAddress(const SocketAddress& other);
    /// Copies, as the copy constructor (the source keeps its values).
    SocketAddress(SocketAddress&& other);
    SocketAddress& operator=(const SocketAddress& other);
    SocketAddress& operator=(SocketAddress&& other);

    /// Stores the port, then setHost(host).
    void set(const char* host, unsigned short port);
    /// A different host (byte comparison) is stored and makes the address
    /// unresolved; the same host leaves the resolution alone.
    void setHost(const char* host);
    /// Stores the port only. The resolution keeps its old port on purpose
    /// until the host changes or resolve() runs again.
    void setPort(unsigned port);
    const char* getHost() const { return mHost.c_str(); }
    unsigned getPort() const { return mPort; }
    bool isResolved() const { return mLength > 0; }

    /// Resolves host and port (any family, any socket type) and keeps the
    /// first result; false when the resolver fails or finds nothing.
    bool resolve() const;
    /// The numeric form of the resolved address (resolving first when
    /// needed), or the host text when there is none; returns out.c_str().
    const char* getPrintableAddress(std::string& out) const;

    /// The native address (a sockaddr) and its length; the length is <= 0
    /// while unresolved.
    const void* getNativeAddress() const { return mAddress; }
    int getNativeLength() const { return mLength; }
    /// Takes a native address (at most CAPACITY bytes) as the resolution;
    /// with port set, the port is also taken from it.
    void setNativeAddress(const void* address, int length, bool takePort);
    /// Marks the address unresolved.
    void clearResolution() const { mLength = 0; }

private:
    void copyFrom(const SocketAddress& other);

    std::string mHost;
    unsigned mPort;
    alignas(8) mutable unsigned char mAddress[CAPACITY];
    mutable int mLength;
};

} // namespace net
