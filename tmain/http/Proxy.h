#pragma once
#include <string>
#include <tmain/Export.h>

namespace tarso {
namespace http {

/// A proxy end point: host and port (0 when unset).
class TMAIN_API Proxy {
public:
    Proxy() : mPort(0) {}
    Proxy(const char* host, unsigned port) : mHost(host ? host : ""), mPort(port) {}

    void set(const char* host, unsigned port) {
        setHost(host);
        mPort = port;
    }
    /// A null host means none.
    void setHost(const char* host) { mHost = host ? host : ""; }
    void setPort(unsigned port) { mPort = port; }
    /// Back to no proxy.
    void clear() {
        mHost.clear();
        mPort = 0;
    }

    const char* getHost() const { return mHost.c_str(); }
    unsigned getPort() const { return mPort; }
    /// True when a host and a non-zero port are set.
    bool isValid() const { return !mHost.empty() && mPort > 0; }

private:
    std::string mHost;
    unsigned mPort;
};

} // namespace http
} // namespace tarso
