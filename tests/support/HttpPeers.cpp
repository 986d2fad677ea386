#include "HttpPeers.h"

#include <cctype>
#include <cstdlib>

namespace tmaintest {

namespace detail {

std::string nginxConfig(const std::string& d, const std::string& root, const std::string& extra,
                        unsigned short port, const Nginx::Tls& tls, unsigned short tlsPort,
                        bool workerAsRoot) {
    std::string listen = "    listen 127.0.0.1:" + std::to_string(port) + ";\n";
    if (tlsPort)
        listen += "    listen 127.0.0.1:" + std::to_string(tlsPort) + " ssl;\n    ssl_certificate " +
                  tls.certificateFile + ";\n    ssl_certificate_key " + tls.keyFile + ";\n";
    // The worker runs as root only when the tests do, so that it can read
    // the test's private directories.
    std::string conf = workerAsRoot ? "user root root;\n" : "";
    conf += "daemon off;\nworker_processes 1;\npid " + d + "/nginx.pid;\nerror_log " + d +
            "/error.log;\nevents { worker_connections 256; }\nhttp {\n"
            "  log_format ranges '$request_method $uri \"$http_range\" $status $body_bytes_sent';\n"
            "  access_log " +
            d + "/access.log ranges;\n  default_type application/octet-stream;\n";
    for (const char* temp : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        conf += std::string("  ") + temp + "_temp_path " + d + ";\n";
    return conf + "  keepalive_requests 1000000;\n  sendfile on;\n  server {\n" + listen + "    root " +
           root + ";\n" + extra + "\n  }\n}\n";
}

std::string squidConfig(const std::string& d, unsigned short port) {
    return "http_port 127.0.0.1:" + std::to_string(port) +
           "\nhttp_access allow all\nstrip_query_terms off\ncache deny all\n"
           "cache_mem 8 MB\naccess_log stdio:" +
           d + "/access.log\ncache_log /dev/null\npid_filename none\ncoredump_dir " + d +
           "\nnetdb_filename none\nvisible_hostname localhost\n"
           "shutdown_lifetime 0 seconds\nlogfile_rotate 0\n";
}

std::string toolPath(const char* tool) {
    std::string out;
    run(std::string("command -v ") + tool, &out);
    return out.substr(0, out.find_first_of("\r\n"));
}

} // namespace detail

bool makeSelfSignedCertificate(const std::string& certificateFile, const std::string& keyFile) {
    return run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -addext "
               "subjectAltName=IP:127.0.0.1,DNS:localhost -keyout '" +
               keyFile + "' -out '" + certificateFile + "' 2>/dev/null") == 0;
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

std::string Squid::accessLog() const {
    return readFile(mDir.file("access.log"));
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

std::string ScriptedServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

std::string httpResponse(const std::string& status, const std::string& body, const std::string& extra) {
    return "HTTP/1.1 " + status + "\r\ncontent-length: " + std::to_string(body.size()) + "\r\n" + extra +
           "\r\n" + body;
}

} // namespace tmaintest
