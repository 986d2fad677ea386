#include "HttpPeers.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tmaintest {

namespace {

sockaddr_in loopback(unsigned short port) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

/// Starts argv with the given environment additions; `keepFds` stay open in
/// the child (the inherited listening sockets), `errFd` receives stderr.
int spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env,
          const std::vector<int>& keepFds, int errFd) {
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    for (int fd : keepFds)
        fcntl(fd, F_SETFD, 0);
    if (errFd >= 0)
        dup2(errFd, 2);
    int devnull = open("/dev/null", O_RDWR);
    dup2(devnull, 0);
    dup2(devnull, 1);
    for (auto& e : env)
        putenv(strdup(e.c_str()));
    std::vector<char*> args;
    for (auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
}

void stop(int& pid) {
    if (pid > 0 && kill(pid, SIGKILL) == 0)
        waitpid(pid, nullptr, 0);
    pid = -1;
}

} // namespace

SocketHandle listenLoopback(unsigned short& port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in a = loopback(0);
    socklen_t len = sizeof(a);
    if (bind(fd, (sockaddr*)&a, sizeof(a)) != 0 || listen(fd, 128) != 0 ||
        getsockname(fd, (sockaddr*)&a, &len) != 0)
        throw std::runtime_error(std::string("loopback listen failed: ") + strerror(errno));
    port = ntohs(a.sin_port);
    return fd;
}

void closeSocket(SocketHandle socket) {
    close((int)socket);
}

Nginx::Nginx(const std::string& root, const std::string& extra, const Tls& tls) {
    std::string nginx = detail::toolPath("nginx");
    if (nginx.empty())
        return;
    std::vector<int> fds = {(int)listenLoopback(mPort)};
    if (!tls.certificateFile.empty())
        fds.push_back((int)listenLoopback(mTlsPort));
    std::string inherited;
    for (int f : fds)
        inherited += std::to_string(f) + ";";
    const std::string& d = mDir.path();
    writeFile(d + "/nginx.conf", detail::nginxConfig(d, root, extra, mPort, tls, mTlsPort, geteuid() == 0));
    mPid = spawn({nginx, "-p", d, "-e", d + "/error.log", "-c", d + "/nginx.conf"}, {"NGINX=" + inherited},
                 fds, -1);
    // nginx owns the sockets now; it accepts what queues meanwhile.
    for (int f : fds)
        close(f);
}

void Nginx::sync() const {
    // The single worker finishes a request, its log line included, before it
    // takes the next one: once a new request is answered, every earlier
    // request is logged and the master sits in its signal loop. The receive
    // timeout only guards against an nginx that never answers.
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = loopback(mPort);
    timeval limit{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    if (connect(fd, (sockaddr*)&a, sizeof(a)) == 0) {
        const char request[] = "GET /tmain-sync HTTP/1.0\r\n\r\n";
        char buf[512];
        if (send(fd, request, sizeof(request) - 1, MSG_NOSIGNAL) > 0)
            while (recv(fd, buf, sizeof(buf), 0) > 0) {
            }
    }
    close(fd);
}

Nginx::~Nginx() {
    if (mPid <= 0)
        return;
    // A master that gets SIGTERM while it is still starting can miss it and
    // wait forever; after a sync it is past that point.
    sync();
    // The master stops its worker before it exits.
    if (kill(mPid, SIGTERM) == 0)
        waitpid(mPid, nullptr, 0);
}

Squid::Squid() {
    std::string squid = detail::toolPath("squid");
    int p[2];
    if (squid.empty() || pipe2(p, O_CLOEXEC) != 0)
        return;
    // squid drops to its own user: the directory must be writable for it.
    chmod(mDir.path().c_str(), 0777);
    close(listenLoopback(mPort));
    const std::string& d = mDir.path();
    writeFile(d + "/squid.conf", detail::squidConfig(d, mPort));
    mPid = spawn({squid, "-N", "-d", "1", "-f", d + "/squid.conf"}, {}, {}, p[1]);
    close(p[1]);
    // Wait for the line that says the port is open (or for squid to die).
    const char* const ready = "Accepting HTTP Socket connections";
    std::string err;
    char buf[4096];
    for (ssize_t n; err.find(ready) == std::string::npos && (n = read(p[0], buf, sizeof(buf))) > 0;)
        err.append(buf, (size_t)n);
    if (err.find(ready) == std::string::npos) {
        fprintf(stderr, "squid did not start:\n%s\n", err.c_str());
        stop(mPid);
    }
    // squid reports the port before its acceptor calls listen(): until then a
    // connect is refused. Try until one gets through, or squid is gone.
    for (sockaddr_in a = loopback(mPort); mPid > 0; sched_yield()) {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool open = connect(fd, (sockaddr*)&a, sizeof(a)) == 0;
        close(fd);
        if (open)
            break;
        if (waitpid(mPid, nullptr, WNOHANG) == mPid)
            mPid = -1;
    }
    // Keep draining squid's stderr so it never blocks on a full pipe.
    std::thread([fd = p[0]] {
        for (char b[4096]; read(fd, b, sizeof(b)) > 0;) {
        }
        close(fd);
    }).detach();
}

Squid::~Squid() {
    stop(mPid);
}

bool ScriptedConnection::receive() {
    char buf[65536];
    ssize_t n = recv((int)mFd, buf, sizeof(buf), 0);
    if (n > 0)
        mPending.append(buf, (size_t)n);
    return n > 0;
}

void ScriptedConnection::send(const std::string& bytes) {
    // A failed send means the client went away; the handler's remaining sends are moot.
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = ::send((int)mFd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        done += (size_t)n;
    }
}

void ScriptedConnection::shutdownWrite() {
    shutdown((int)mFd, SHUT_WR);
}

ScriptedServer::ScriptedServer(Handler handler) : mHandler(std::move(handler)) {
    mListen = listenLoopback(mPort);
    mAcceptThread = std::thread([this] { acceptLoop(); });
}

void ScriptedServer::acceptLoop() {
    for (;;) {
        int fd = accept4((int)mListen, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        // The destructor connects once to end the loop.
        if (mStopping) {
            close(fd);
            return;
        }
        ++mAccepted;
        std::lock_guard<std::mutex> g(mMutex);
        mOpen.push_back(fd);
        mWorkers.emplace_back([this, fd] {
            ScriptedConnection c(fd);
            mHandler(c);
            // Closing here would race with the destructor's shutdown of the
            // same descriptor; the destructor closes every one.
            shutdown(fd, SHUT_RDWR);
        });
    }
}

ScriptedServer::~ScriptedServer() {
    mStopping = true;
    int wake = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = loopback(mPort);
    if (connect(wake, (sockaddr*)&a, sizeof(a)) != 0)
        abort();
    mAcceptThread.join();
    close(wake);
    {
        // Handlers blocked in recv wake up with an end of stream.
        std::lock_guard<std::mutex> g(mMutex);
        for (SocketHandle fd : mOpen)
            shutdown((int)fd, SHUT_RDWR);
    }
    for (auto& t : mWorkers)
        t.join();
    for (SocketHandle fd : mOpen)
        close((int)fd);
    close((int)mListen);
}

} // namespace tmaintest
