#pragma once
// HTTP peers started by the tests on loopback: nginx, squid, and a scripted
// server whose handlers write whatever bytes a test needs.
#include "TestSupport.h"
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tmaintest {

/// A socket descriptor (a WinSock SOCKET on Windows).
using SocketHandle = std::intptr_t;

/// A listening TCP socket on 127.0.0.1 with a port chosen by the system.
SocketHandle listenLoopback(unsigned short& port);
void closeSocket(SocketHandle socket);

/// Self-signed PEM certificate for 127.0.0.1 and localhost plus its key, made
/// by openssl; false when openssl failed.
bool makeSelfSignedCertificate(const std::string& certificateFile, const std::string& keyFile);

/// nginx serving `root` on 127.0.0.1. The listening sockets are made here and
/// handed to nginx (its NGINX inheritance variable), so it accepts as soon as
/// the constructor returns: no waiting for start-up.
class Nginx {
public:
    /// PEM files for a second, TLS listener serving the same server block.
    struct Tls {
        std::string certificateFile, keyFile;
    };
    /// `extraServerConfig` is pasted into the server block.
    explicit Nginx(const std::string& root, const std::string& extraServerConfig = "",
                   const Tls& tls = Tls());
    ~Nginx();
    unsigned short port() const { return mPort; }
    std::string url(const std::string& path) const;
    /// 0 without a TLS listener.
    unsigned short tlsPort() const { return mTlsPort; }
    std::string tlsUrl(const std::string& path) const;
    bool running() const { return mPid > 0; }
    /// One line per request: method, URI, "range header", status, body bytes
    /// sent; every request answered before the call is in it (see sync()).
    std::string accessLog() const;
    /// Returns once nginx has answered one more request ("GET /tmain-sync"):
    /// its single worker logs each request before taking the next one.
    void sync() const;

private:
    TempDir mDir;
    unsigned short mPort = 0, mTlsPort = 0;
    int mPid = -1;
};

/// squid as a plain forward proxy on 127.0.0.1, no cache. The constructor
/// returns once squid accepts connections.
class Squid {
public:
    Squid();
    ~Squid();
    unsigned short port() const { return mPort; }
    bool running() const { return mPid > 0; }
    /// The access log lines written so far (method, URL, status).
    std::string accessLog() const;

private:
    TempDir mDir;
    unsigned short mPort = 0;
    int mPid = -1;
};

/// One accepted connection of a ScriptedServer.
class ScriptedConnection {
public:
    explicit ScriptedConnection(SocketHandle fd) : mFd(fd) {}
    /// The next request head (up to and with the blank line) plus a body of
    /// its content-length; empty when the client closed first.
    std::string readRequest();
    /// Reads until the client closes; returns what came.
    std::string readUntilClose();
    void send(const std::string& bytes);
    /// Closes the sending direction; the client sees the end of the stream.
    void shutdownWrite();

private:
    bool receive();
    SocketHandle mFd;
    std::string mPending;
};

/// A TCP server on 127.0.0.1 that runs `handler` on a thread of its own for
/// every accepted connection and closes the connection when it returns.
class ScriptedServer {
public:
    using Handler = std::function<void(ScriptedConnection&)>;
    explicit ScriptedServer(Handler handler);
    ~ScriptedServer();
    unsigned short port() const { return mPort; }
    std::string url(const std::string& path) const;
    int connections() const { return mAccepted.load(); }

private:
    void acceptLoop();

    Handler mHandler;
    SocketHandle mListen = -1;
    unsigned short mPort = 0;
    std::atomic<int> mAccepted{0};
    std::atomic<bool> mStopping{false};
    std::thread mAcceptThread;
    std::vector<std::thread> mWorkers;
    std::vector<SocketHandle> mOpen;
    std::mutex mMutex;
};

/// "HTTP/1.1 <status>\r\ncontent-length: N\r\n<extra>\r\n<body>"
std::string httpResponse(const std::string& status, const std::string& body, const std::string& extra = "");

namespace detail {
/// The nginx.conf of Nginx, its files in `dir`; no TLS listener when tlsPort is 0.
std::string nginxConfig(const std::string& dir, const std::string& root, const std::string& extraServerConfig,
                        unsigned short port, const Nginx::Tls& tls, unsigned short tlsPort,
                        bool workerAsRoot);
std::string squidConfig(const std::string& dir, unsigned short port);
/// The full path of a tool on PATH, empty without it.
std::string toolPath(const char* tool);
} // namespace detail

} // namespace tmaintest
