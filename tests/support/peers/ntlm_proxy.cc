// An HTTP proxy that only authenticates: the NTLM peer of the proxy tests.
//
//   NTLM_USER_FILE=<file> tmain_ntlm_proxy      serve on 127.0.0.1
//   tmain_ntlm_proxy --probe                   exit 0 when GSSAPI offers NTLMSSP
//
// <file> holds the accounts the proxy accepts, one "DOMAIN:user:password" a
// line. The proxy listens on a free port of 127.0.0.1 and prints it on stdout
// as its first line; it stops when its standard input closes (or on a signal).
// Each TCP connection is one keep-alive HTTP/1.1 session, authenticated the
// way NTLM proxies do it, per connection:
// - no "proxy-authorization" before the connection is authenticated:
//   407 with "Proxy-Authenticate: NTLM";
// - "proxy-authorization: NTLM <negotiate>": 407 with
//   "Proxy-Authenticate: NTLM <challenge>";
// - "proxy-authorization: NTLM <authenticate>" on the same connection: when
//   accepted, 200; else 407 with "Proxy-Authenticate: NTLM" again;
// - once authenticated, every request gets 200.
// Every 200 carries "X-Request-Count" (requests read on this connection so
// far), "X-NTLM-User" (the authenticated user) and "X-Request-Target" (the
// request line's target); its body is "authenticated <user>\n". Request
// bodies (content-length) are read and dropped. "connection: close" or
// "proxy-connection: close" closes the connection after the response.
#include <gssapi/gssapi.h>

#include <arpa/inet.h>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

gss_OID_desc NTLMSSP = {10, (void*)"\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a"};
gss_cred_id_t gAcceptor = GSS_C_NO_CREDENTIAL;

const char* const ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string encode(const unsigned char* p, size_t n) {
    std::string out;
    for (size_t i = 0; i < n; i += 3) {
        unsigned v = p[i] << 16 | (i + 1 < n ? p[i + 1] << 8 : 0) | (i + 2 < n ? p[i + 2] : 0);
        out += ALPHABET[v >> 18 & 63];
        out += ALPHABET[v >> 12 & 63];
        out += i + 1 < n ? ALPHABET[v >> 6 & 63] : '=';
        out += i + 2 < n ? ALPHABET[v & 63] : '=';
    }
    return out;
}

bool decode(const std::string& in, std::string& out) {
    out.clear();
    if (in.empty() || in.size() % 4)
        return false;
    for (size_t i = 0; i < in.size(); i += 4) {
        unsigned v = 0;
        int pad = 0;
        for (size_t j = 0; j < 4; ++j) {
            char ch = in[i + j];
            if (ch == '=') {
                if (i + 4 != in.size() || j < 2)
                    return false;
                ++pad;
                v <<= 6;
                continue;
            }
            const char* c = ch ? strchr(ALPHABET, ch) : nullptr;
            if (!c || pad)
                return false;
            v = v << 6 | (unsigned)(c - ALPHABET);
        }
        out += (char)(v >> 16);
        if (pad < 2)
            out += (char)(v >> 8 & 255);
        if (pad < 1)
            out += (char)(v & 255);
    }
    return true;
}

/// Reads one CRLF- or LF-terminated line; false at the end of the connection.
bool readLine(int fd, std::string& buffer, std::string& line) {
    for (;;) {
        size_t eol = buffer.find('\n');
        if (eol != std::string::npos) {
            line = buffer.substr(0, eol);
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            buffer.erase(0, eol + 1);
            return true;
        }
        if (buffer.size() > 65536)
            return false;
        char chunk[4096];
        ssize_t n = recv(fd, chunk, sizeof(chunk), 0);
        if (n <= 0)
            return false;
        buffer.append(chunk, (size_t)n);
    }
}

bool skipBytes(int fd, std::string& buffer, size_t count) {
    while (buffer.size() < count) {
        char chunk[4096];
        ssize_t n = recv(fd, chunk, sizeof(chunk), 0);
        if (n <= 0)
            return false;
        buffer.append(chunk, (size_t)n);
    }
    buffer.erase(0, count);
    return true;
}

bool sendAll(int fd, const std::string& data) {
    for (size_t done = 0; done < data.size();) {
        ssize_t n = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        done += (size_t)n;
    }
    return true;
}

std::string lower(std::string s) {
    for (char& c : s)
        c = (char)tolower((unsigned char)c);
    return s;
}

std::string response(int code, const std::string& extraHeaders, const std::string& body, bool close) {
    std::string reason = code == 200 ? "OK" : "Proxy Authentication Required";
    return "HTTP/1.1 " + std::to_string(code) + " " + reason + "\r\n" + extraHeaders +
           "Content-Length: " + std::to_string(body.size()) +
           "\r\nConnection: " + (close ? "close" : "keep-alive") + "\r\n\r\n" + body;
}

struct Session {
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
    std::string user;
    bool authenticated = false;

    ~Session() { reset(); }
    void reset() {
        OM_uint32 minor;
        if (context != GSS_C_NO_CONTEXT)
            gss_delete_sec_context(&minor, &context, GSS_C_NO_BUFFER);
        context = GSS_C_NO_CONTEXT;
    }

    /// True when the token is taken: `challenge` then answers a negotiate
    /// token, and is empty after an accepted authenticate token.
    bool step(const std::string& token, std::string& challenge) {
        challenge.clear();
        bool negotiate = token.size() >= 12 && memcmp(token.data(), "NTLMSSP\0", 8) == 0 && token[8] == 1;
        if (negotiate)
            reset();
        else if (context == GSS_C_NO_CONTEXT)
            return false;
        OM_uint32 minor, ignored;
        gss_buffer_desc in = {token.size(), (void*)token.data()}, out = GSS_C_EMPTY_BUFFER;
        gss_name_t source = GSS_C_NO_NAME;
        OM_uint32 major = gss_accept_sec_context(&minor, &context, gAcceptor, &in, GSS_C_NO_CHANNEL_BINDINGS,
                                                 &source, nullptr, &out, nullptr, nullptr, nullptr);
        if (out.length)
            challenge = encode((const unsigned char*)out.value, out.length);
        gss_release_buffer(&ignored, &out);
        if (GSS_ERROR(major)) {
            fprintf(stderr, "ntlm_proxy: token refused (major %u, minor %u)\n", major, minor);
            reset();
            return false;
        }
        if (major == GSS_S_COMPLETE) {
            gss_buffer_desc name = GSS_C_EMPTY_BUFFER;
            if (!GSS_ERROR(gss_display_name(&ignored, source, &name, nullptr)))
                user.assign((const char*)name.value, name.length);
            gss_release_buffer(&ignored, &name);
            authenticated = true;
            challenge.clear();
            reset();
        }
        gss_release_name(&ignored, &source);
        return negotiate ? !challenge.empty() : authenticated;
    }
};

void serve(int fd) {
    Session session;
    std::string buffer, line;
    unsigned requests = 0;
    while (readLine(fd, buffer, line)) {
        if (line.empty())
            continue; // blank lines between requests
        std::string target = line.substr(line.find(' ') + 1);
        target = target.substr(0, target.find(' '));
        std::map<std::string, std::string> headers;
        bool complete = false;
        while (readLine(fd, buffer, line)) {
            if (line.empty()) {
                complete = true;
                break;
            }
            size_t colon = line.find(':');
            if (colon == std::string::npos)
                continue;
            size_t start = line.find_first_not_of(" \t", colon + 1);
            headers[lower(line.substr(0, colon))] = start == std::string::npos ? "" : line.substr(start);
        }
        if (!complete || !skipBytes(fd, buffer, strtoul(headers["content-length"].c_str(), nullptr, 10)))
            break;
        ++requests;
        bool close = lower(headers["connection"]) == "close" || lower(headers["proxy-connection"]) == "close";

        std::string reply;
        std::string authorization = headers["proxy-authorization"], token, challenge;
        if (!session.authenticated && authorization.compare(0, 5, "NTLM ") == 0 &&
            decode(authorization.substr(5), token) && session.step(token, challenge) && !challenge.empty())
            reply = response(407, "Proxy-Authenticate: NTLM " + challenge + "\r\n", "challenge\n", close);
        else if (session.authenticated)
            reply =
                response(200,
                         "X-Request-Count: " + std::to_string(requests) + "\r\nX-NTLM-User: " + session.user +
                             "\r\nX-Request-Target: " + target + "\r\n",
                         "authenticated " + session.user + "\n", close);
        else
            reply = response(407, "Proxy-Authenticate: NTLM\r\n", "proxy authentication required\n", close);
        if (!sendAll(fd, reply) || close)
            break;
    }
    close(fd);
}

bool ntlmsspAvailable() {
    OM_uint32 minor;
    gss_OID_set mechanisms = GSS_C_NO_OID_SET;
    int present = 0;
    if (!GSS_ERROR(gss_indicate_mechs(&minor, &mechanisms)))
        gss_test_oid_set_member(&minor, &NTLMSSP, mechanisms, &present);
    gss_release_oid_set(&minor, &mechanisms);
    return present != 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 1 && strcmp(argv[1], "--probe") == 0) {
        bool ok = ntlmsspAvailable();
        puts(ok ? "ntlmssp available" : "ntlmssp missing");
        return ok ? 0 : 1;
    }
    gss_OID_set_desc mechanisms = {1, &NTLMSSP};
    OM_uint32 minor;
    OM_uint32 major = gss_acquire_cred(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, &mechanisms, GSS_C_ACCEPT,
                                       &gAcceptor, nullptr, nullptr);
    if (GSS_ERROR(major)) {
        fprintf(stderr, "ntlm_proxy: no acceptor credentials (major %u, minor %u)\n", major, minor);
        return 2;
    }
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (listener < 0 || bind(listener, (sockaddr*)&address, sizeof(address)) != 0 ||
        listen(listener, 16) != 0 || getsockname(listener, (sockaddr*)&address, &length) != 0) {
        perror("ntlm_proxy");
        return 2;
    }
    printf("%u\n", ntohs(address.sin_port));
    fflush(stdout);

    std::thread([] {
        char c;
        while (read(0, &c, 1) > 0) {
        }
        _exit(0);
    }).detach();
    for (;;) {
        int fd = accept(listener, nullptr, nullptr);
        if (fd >= 0)
            std::thread(serve, fd).detach();
    }
}
