#include "HttpPeers.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
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

std::string which(const char* tool) {
    std::string out;
    run(std::string("command -v ") + tool, &out);
    return out.substr(0, out.find_first_of("\r\n"));
}

} // namespace

int listenLoopback(unsigned short& port) {
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

bool makeSelfSignedCertificate(const std::string& certificateFile, const std::string& keyFile) {
    return run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -addext "
               "subjectAltName=IP:127.0.0.1,DNS:localhost -keyout '" +
               keyFile + "' -out '" + certificateFile + "' 2>/dev/null") == 0;
}

Nginx::Nginx(const std::string& root, const std::string& extra, const Tls& tls) {
    std::string nginx = which("nginx");
    if (nginx.empty())
        return;
    std::vector<int> fds = {listenLoopback(mPort)};
    std::string listen = "    listen 127.0.0.1:" + std::to_string(mPort) + ";\n";
    if (!tls.certificateFile.empty()) {
        fds.push_back(listenLoopback(mTlsPort));
        listen += "    listen 127.0.0.1:" + std::to_string(mTlsPort) + " ssl;\n    ssl_certificate " +
                  tls.certificateFile + ";\n    ssl_certificate_key " + tls.keyFile + ";\n";
    }
    std::string inherited;
    for (int f : fds)
        inherited += std::to_string(f) + ";";
    const std::string& d = mDir.path();
    // The worker runs as root only when the tests do, so that it can read
    // the test's private directories.
    std::string conf = geteuid() == 0 ? "user root root;\n" : "";
    conf += "daemon off;\nworker_processes 1;\npid " + d + "/nginx.pid;\nerror_log " + d +
            "/error.log;\nevents { worker_connections 256; }\nhttp {\n"
            "  log_format ranges '$request_method $uri \"$http_range\" $status $body_bytes_sent';\n"
            "  access_log " +
            d + "/access.log ranges;\n  default_type application/octet-stream;\n";
    for (const char* temp : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        conf += std::string("  ") + temp + "_temp_path " + d + ";\n";
    writeFile(d + "/nginx.conf", conf + "  keepalive_requests 1000000;\n  sendfile on;\n  server {\n" +
                                     listen + "    root " + root + ";\n" + extra + "\n  }\n}\n");
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

std::string Nginx::accessLog() const {
    if (mPid > 0)
        sync();
    return readFile(mDir.file("access.log"));
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

std::string Nginx::tlsUrl(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(mTlsPort) + path;
}

Squid::Squid() {
    std::string squid = which("squid");
    int p[2];
    if (squid.empty() || pipe2(p, O_CLOEXEC) != 0)
        return;
    // squid drops to its own user: the directory must be writable for it.
    chmod(mDir.path().c_str(), 0777);
    close(listenLoopback(mPort));
    const std::string& d = mDir.path();
    writeFile(d + "/squid.conf",
              "http_port 127.0.0.1:" + std::to_string(mPort) +
                  "\nhttp_access allow all\nstrip_query_terms off\ncache deny all\n"
                  "cache_mem 8 MB\naccess_log stdio:" +
                  d + "/access.log\ncache_log /dev/null\npid_filename none\ncoredump_dir " + d +
                  "\nnetdb_filename none\nvisible_hostname localhost\n"
                  "shutdown_lifetime 0 seconds\nlogfile_rotate 0\n");
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

std::string Squid::accessLog() const {
    return readFile(mDir.file("access.log"));
}

bool ScriptedConnection::receive() {
    char buf[65536];
    ssize_t n = recv(mFd, buf, sizeof(buf), 0);
    if (n > 0)
        mPending.append(buf, (size_t)n);
    return n > 0;
}

std::string ScriptedConnection::readRequest() {
    size_t end;
    while ((end = mPending.find("\r\n\r\n")) == std::string::npos)
        if (!receive())
            return "";
    std::string lower = mPending.substr(0, end + 4);
    for (auto& c : lower)
        c = (char)tolower((unsigned char)c);
    size_t cl = lower.find("\r\ncontent-length:");
    size_t size = end + 4 + (cl == std::string::npos ? 0 : strtoul(lower.c_str() + cl + 17, nullptr, 10));
    while (mPending.size() < size)
        if (!receive())
            return "";
    std::string request = mPending.substr(0, size);
    mPending.erase(0, size);
    return request;
}

std::string ScriptedConnection::readUntilClose() {
    while (receive()) {
    }
    std::string all;
    all.swap(mPending);
    return all;
}

void ScriptedConnection::send(const std::string& bytes) {
    // A failed send means the client went away; the handler's remaining sends are moot.
    for (size_t done = 0; done < bytes.size();) {
        ssize_t n = ::send(mFd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        done += (size_t)n;
    }
}

void ScriptedConnection::shutdownWrite() {
    shutdown(mFd, SHUT_WR);
}

ScriptedServer::ScriptedServer(Handler handler) : mHandler(std::move(handler)) {
    mListen = listenLoopback(mPort);
    if (pipe2(mWake, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    mAcceptThread = std::thread([this] { acceptLoop(); });
}

void ScriptedServer::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{mListen, POLLIN, 0}, {mWake[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno == EINTR)
            continue;
        if (fds[1].revents)
            return;
        int fd = accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
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
    char b = 0;
    (void)!write(mWake[1], &b, 1);
    mAcceptThread.join();
    {
        // Handlers blocked in recv wake up with an end of stream.
        std::lock_guard<std::mutex> g(mMutex);
        for (int fd : mOpen)
            shutdown(fd, SHUT_RDWR);
    }
    for (auto& t : mWorkers)
        t.join();
    for (int fd : mOpen)
        close(fd);
    for (int fd : {mListen, mWake[0], mWake[1]})
        close(fd);
}

std::string ScriptedServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

std::string httpResponse(const std::string& status, const std::string& body, const std::string& extra) {
    return "HTTP/1.1 " + status + "\r\ncontent-length: " + std::to_string(body.size()) + "\r\n" + extra +
           "\r\n" + body;
}

} // namespace tmaintest
