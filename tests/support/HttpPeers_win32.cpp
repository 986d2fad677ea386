#include "HttpPeers.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

// The peers are Linux programs: they start and stop through the shell (run()),
// so a peer's pid is its Linux pid, and the tests reach them over loopback.

namespace tmaintest {

namespace {

void startWinSock() {
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    if (!started)
        throw std::runtime_error("WSAStartup failed");
}

sockaddr_in loopback(unsigned short port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

bool accepts(unsigned short port) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in a = loopback(port);
    const bool open = connect(s, (sockaddr*)&a, sizeof(a)) == 0;
    closesocket(s);
    return open;
}

/// A port of 127.0.0.1 that was free a moment ago, for a peer that must
/// bind it itself.
unsigned short freePort() {
    unsigned short port = 0;
    closeSocket(listenLoopback(port));
    return port;
}

/// The process still runs (a zombie counts as gone).
bool alive(int pid) {
    const std::string stat = "/proc/" + std::to_string(pid) + "/stat";
    return run("read -r _ _ state _ < " + stat + " 2>/dev/null && [ \"$state\" != Z ]") == 0;
}

/// Starts `command` in the background with its output on /dev/null (and
/// stderr in errorFile when given); returns the pid, -1 when it failed.
int startPeer(const std::string& command, const std::string& errorFile = "/dev/null") {
    std::string out;
    if (run(command + " </dev/null >/dev/null 2>'" + errorFile + "' & echo $!", &out) != 0)
        return -1;
    int pid = atoi(out.c_str());
    return pid > 0 ? pid : -1;
}

/// Waits until the peer accepts on `port`; false (and the peer stopped) when
/// it exited first.
bool awaitPort(int& pid, unsigned short port) {
    while (!accepts(port))
        if (!alive(pid)) {
            pid = -1;
            return false;
        }
    return true;
}

void stop(int& pid, const char* signal) {
    if (pid > 0)
        run("kill -" + std::string(signal) + " " + std::to_string(pid) +
            " 2>/dev/null; while read -r _ _ s _ < /proc/" + std::to_string(pid) +
            "/stat 2>/dev/null && [ \"$s\" != Z ]; do sleep 0.01; done");
    pid = -1;
}

} // namespace

SocketHandle listenLoopback(unsigned short& port) {
    startWinSock();
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in a = loopback(0);
    int len = sizeof(a);
    if (s == INVALID_SOCKET || bind(s, (sockaddr*)&a, sizeof(a)) != 0 || listen(s, 128) != 0 ||
        getsockname(s, (sockaddr*)&a, &len) != 0)
        throw std::runtime_error("loopback listen failed: WinSock error " +
                                 std::to_string(WSAGetLastError()));
    port = ntohs(a.sin_port);
    return (SocketHandle)s;
}

void closeSocket(SocketHandle socket) {
    closesocket((SOCKET)socket);
}

Nginx::Nginx(const std::string& root, const std::string& extra, const Tls& tls) {
    std::string nginx = detail::toolPath("nginx");
    if (nginx.empty())
        return;
    startWinSock();
    mPort = freePort();
    if (!tls.certificateFile.empty())
        mTlsPort = freePort();
    const std::string& d = mDir.path();
    writeFile(d + "/nginx.conf",
              detail::nginxConfig(d, root, extra, mPort, tls, mTlsPort, outputOf("id -u") == "0\n"));
    mPid = startPeer("'" + nginx + "' -p '" + d + "' -e '" + d + "/error.log' -c '" + d + "/nginx.conf'");
    if (mPid > 0 && !awaitPort(mPid, mPort))
        fprintf(stderr, "nginx did not start:\n%s\n", readFile(d + "/error.log").c_str());
}

void Nginx::sync() const {
    // The single worker finishes a request, its log line included, before it
    // takes the next one: once a new request is answered, every earlier
    // request is logged and the master sits in its signal loop. The receive
    // timeout only guards against an nginx that never answers.
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in a = loopback(mPort);
    DWORD limit = 10000;
    setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, (const char*)&limit, sizeof(limit));
    if (connect(s, (sockaddr*)&a, sizeof(a)) == 0) {
        const char request[] = "GET /tmain-sync HTTP/1.0\r\n\r\n";
        char buf[512];
        if (::send(s, request, sizeof(request) - 1, 0) > 0)
            while (recv(s, buf, sizeof(buf), 0) > 0) {
            }
    }
    closesocket(s);
}

Nginx::~Nginx() {
    if (mPid <= 0)
        return;
    // A master that gets SIGTERM while it is still starting can miss it and
    // wait forever; after a sync it is past that point. The master stops its
    // worker before it exits.
    sync();
    stop(mPid, "TERM");
}

Squid::Squid() {
    std::string squid = detail::toolPath("squid");
    if (squid.empty())
        return;
    startWinSock();
    const std::string& d = mDir.path();
    // squid drops to its own user: the directory must be writable for it.
    run("chmod 777 '" + d + "'");
    mPort = freePort();
    writeFile(d + "/squid.conf", detail::squidConfig(d, mPort));
    mPid = startPeer("'" + squid + "' -N -d 1 -f '" + d + "/squid.conf'", d + "/squid.err");
    // squid accepts once its acceptor listens; until then a connect is refused.
    if (mPid > 0 && !awaitPort(mPid, mPort))
        fprintf(stderr, "squid did not start:\n%s\n", readFile(d + "/squid.err").c_str());
}

Squid::~Squid() {
    stop(mPid, "KILL");
}

bool ScriptedConnection::receive() {
    char buf[65536];
    int n = recv((SOCKET)mFd, buf, sizeof(buf), 0);
    if (n > 0)
        mPending.append(buf, (size_t)n);
    return n > 0;
}

void ScriptedConnection::send(const std::string& bytes) {
    // A failed send means the client went away; the handler's remaining sends are moot.
    for (size_t done = 0; done < bytes.size();) {
        int n =
            ::send((SOCKET)mFd, bytes.data() + done, (int)std::min<size_t>(bytes.size() - done, 1 << 20), 0);
        if (n <= 0)
            return;
        done += (size_t)n;
    }
}

void ScriptedConnection::shutdownWrite() {
    shutdown((SOCKET)mFd, SD_SEND);
}

ScriptedServer::ScriptedServer(Handler handler) : mHandler(std::move(handler)) {
    mListen = listenLoopback(mPort);
    mAcceptThread = std::thread([this] { acceptLoop(); });
}

void ScriptedServer::acceptLoop() {
    for (;;) {
        SOCKET s = accept((SOCKET)mListen, nullptr, nullptr);
        if (s == INVALID_SOCKET)
            continue;
        // The destructor connects once to end the loop.
        if (mStopping) {
            closesocket(s);
            return;
        }
        ++mAccepted;
        std::lock_guard<std::mutex> g(mMutex);
        mOpen.push_back((SocketHandle)s);
        mWorkers.emplace_back([this, s] {
            ScriptedConnection c((SocketHandle)s);
            mHandler(c);
            // Closing here would race with the destructor's shutdown of the
            // same socket; the destructor closes every one.
            shutdown(s, SD_BOTH);
        });
    }
}

ScriptedServer::~ScriptedServer() {
    mStopping = true;
    SOCKET wake = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in a = loopback(mPort);
    if (connect(wake, (sockaddr*)&a, sizeof(a)) != 0)
        abort();
    mAcceptThread.join();
    closesocket(wake);
    {
        // Handlers blocked in recv wake up with an end of stream.
        std::lock_guard<std::mutex> g(mMutex);
        for (SocketHandle s : mOpen)
            shutdown((SOCKET)s, SD_BOTH);
    }
    for (auto& t : mWorkers)
        t.join();
    for (SocketHandle s : mOpen)
        closesocket((SOCKET)s);
    closesocket((SOCKET)mListen);
}

} // namespace tmaintest
