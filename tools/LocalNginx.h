#pragma once
// An nginx on loopback serving a directory, for the demo and the HTTP
// benchmarks, with an access log of the bytes sent per request. Daemon mode:
// the start command returns once the port listens.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

class LocalNginx {
public:
    /// Serves `root`; without one, a fresh directory (www()).
    explicit LocalNginx(const std::string& root = "") {
        char tmpl[] = "/tmp/bench-nginx-XXXXXX";
        mDir = mkdtemp(tmpl);
        int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(a);
        bind(fd, (sockaddr*)&a, sizeof(a));
        getsockname(fd, (sockaddr*)&a, &len);
        close(fd);
        mPort = ntohs(a.sin_port);
        mRoot = root.empty() ? mDir + "/www" : root;
        const char* d = mDir.c_str();
        FILE* conf = fopen((mDir + "/nginx.conf").c_str(), "w");
        fprintf(conf,
                "%spid %s/nginx.pid;\nerror_log %s/error.log;\nworker_processes 1;\nevents {}\n"
                "http { log_format sent '$request_method $uri \"$http_range\" $status $body_bytes_sent';\n"
                "  access_log %s/access.log sent; sendfile on; keepalive_requests 1000000;\n"
                "  client_body_temp_path %s; proxy_temp_path %s; fastcgi_temp_path %s; uwsgi_temp_path %s;\n"
                "  scgi_temp_path %s;\n  server { listen 127.0.0.1:%u; root %s; } }\n",
                geteuid() == 0 ? "user root root;\n" : "", d, d, d, d, d, d, d, d, mPort, mRoot.c_str());
        fclose(conf);
        if (system(("mkdir -p " + mDir + "/www && nginx -p " + mDir + " -e " + mDir + "/error.log -c " +
                    mDir + "/nginx.conf")
                       .c_str()) != 0) {
            fprintf(stderr, "nginx did not start\n");
            exit(1);
        }
    }
    ~LocalNginx() {
        if (system(("kill $(cat " + mDir + "/nginx.pid) 2>/dev/null; rm -rf " + mDir).c_str()) != 0)
            fprintf(stderr, "could not stop nginx in %s\n", mDir.c_str());
    }
    /// Where the served files go.
    std::string www() const { return mRoot; }
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(mPort) + path;
    }
    /// Sum of the body bytes sent with status 200 or 206 so far, for the
    /// given URI only when one is given. A request of its own goes first: the
    /// single worker logs a request as it ends, before it serves the next, so
    /// every earlier line is written once this one is answered.
    unsigned long long bytesSent(const char* uri = nullptr) const {
        int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(mPort);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const char request[] = "GET /.log-sync HTTP/1.0\r\n\r\n";
        if (connect(fd, (sockaddr*)&a, sizeof(a)) == 0 && send(fd, request, sizeof(request) - 1, 0) > 0) {
            char b[4096];
            while (recv(fd, b, sizeof(b), 0) > 0) {
            }
        }
        close(fd);
        const std::string word = uri ? std::string(" ") + uri + " " : std::string();
        unsigned long long total = 0;
        FILE* f = fopen((mDir + "/access.log").c_str(), "r");
        char line[4096];
        while (f && fgets(line, sizeof(line), f)) {
            unsigned status = 0;
            unsigned long long sent = 0;
            const char* quote = strrchr(line, '"');
            if (quote && sscanf(quote + 1, "%u %llu", &status, &sent) == 2 &&
                (status == 200 || status == 206) && (word.empty() || strstr(line, word.c_str())))
                total += sent;
        }
        if (f)
            fclose(f);
        return total;
    }

private:
    std::string mDir;
    std::string mRoot;
    unsigned short mPort;
};
