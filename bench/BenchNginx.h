#pragma once
// An nginx serving a temporary directory on loopback for the HTTP benchmarks,
// with an access log of bytes sent per request. Daemon mode: the start
// command returns once the port listens.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

class BenchNginx {
public:
    BenchNginx() {
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
        const char* d = mDir.c_str();
        FILE* conf = fopen((mDir + "/nginx.conf").c_str(), "w");
        fprintf(conf,
                "%spid %s/nginx.pid;\nerror_log %s/error.log;\nworker_processes 1;\nevents {}\n"
                "http { log_format sent '$request_method $uri \"$http_range\" $status $body_bytes_sent';\n"
                "  access_log %s/access.log sent; sendfile on; keepalive_requests 1000000;\n"
                "  client_body_temp_path %s; proxy_temp_path %s; fastcgi_temp_path %s; uwsgi_temp_path %s;\n"
                "  scgi_temp_path %s;\n  server { listen 127.0.0.1:%u; root %s/www; } }\n",
                geteuid() == 0 ? "user root root;\n" : "", d, d, d, d, d, d, d, d, mPort, d);
        fclose(conf);
        if (system(("mkdir -p " + mDir + "/www && nginx -p " + mDir + " -e " + mDir + "/error.log -c " +
                    mDir + "/nginx.conf")
                       .c_str()) != 0) {
            fprintf(stderr, "nginx did not start\n");
            exit(1);
        }
    }
    ~BenchNginx() {
        if (system(("kill $(cat " + mDir + "/nginx.pid) 2>/dev/null; rm -rf " + mDir).c_str()) != 0)
            fprintf(stderr, "could not stop nginx in %s\n", mDir.c_str());
    }
    /// Where the served files go.
    std::string www() const { return mDir + "/www"; }
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(mPort) + path;
    }
    /// Sum of the bytes sent as the access log says so far.
    unsigned long long bytesSent() const {
        unsigned long long total = 0;
        FILE* f = fopen((mDir + "/access.log").c_str(), "r");
        char line[4096];
        while (f && fgets(line, sizeof(line), f)) {
            const char* last = strrchr(line, ' ');
            total += last ? strtoull(last + 1, nullptr, 10) : 0;
        }
        if (f)
            fclose(f);
        return total;
    }

private:
    std::string mDir;
    unsigned short mPort;
};
