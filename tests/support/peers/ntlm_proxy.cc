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

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

gss_OID_desc NTLMSSP = {10, (void*)"\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a"};
gss_cred_id_t gAcceptor = GSS_C_NO_CREDENTIAL;

const char* const ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string encode(const std::string& in) {
    std::string out;
    unsigned bits = 0, v = 0;
    for (unsigned char c : in) {
        v = v << 8 | c;
        for (bits += 8; bits >= 6;)
            out += ALPHABET[v >> (bits -= 6) & 63];
    }
    if (bits)
        out += ALPHABET[v << (6 - bits) & 63];
    return out.append((4 - out.size() % 4) % 4, '=');
}

/// Strict: only canonical, padded base64 is taken.
bool decode(const std::string& in, std::string& out) {
    out.clear();
    unsigned bits = 0, v = 0;
    for (char ch : in) {
        const char* c = ch && ch != '=' ? strchr(ALPHABET, ch) : nullptr;
        if (!c)
            break;
        v = v << 6 | (unsigned)(c - ALPHABET);
        if ((bits += 6) >= 8)
            out += (char)(v >> (bits -= 8));
    }
    return !in.empty() && encode(out) == in;
}

/// Appends what the peer sent next to `buffer`; false at the end of the connection.
bool receive(int fd, std::string& buffer) {
    char chunk[4096];
    ssize_t n = recv(fd, chunk, sizeof(chunk), 0);
    buffer.append(chunk, n > 0 ? (size_t)n : 0);
    return n > 0;
}

/// Takes one CRLF- or LF-terminated line off `buffer`.
bool readLine(int fd, std::string& buffer, std::string& line) {
    size_t eol;
    while ((eol = buffer.find('\n')) == std::string::npos)
        if (buffer.size() > 65536 || !receive(fd, buffer))
            return false;
    line = buffer.substr(0, eol && buffer[eol - 1] == '\r' ? eol - 1 : eol);
    buffer.erase(0, eol + 1);
    return true;
}

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return (char)tolower(c); });
    return s;
}

std::string response(int code, const std::string& headers, const std::string& body, bool close) {
    return "HTTP/1.1 " + std::to_string(code) + (code == 200 ? " OK" : " Proxy Authentication Required") +
           "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
           "\r\nConnection: " + (close ? "close" : "keep-alive") + "\r\n\r\n" + body;
}

void deleteContext(gss_ctx_id_t& context) {
    OM_uint32 minor;
    if (context != GSS_C_NO_CONTEXT)
        gss_delete_sec_context(&minor, &context, GSS_C_NO_BUFFER);
    context = GSS_C_NO_CONTEXT;
}

/// Feeds a client token to the connection's context. Returns the base64
/// challenge answering a negotiate token, else "" (with `user` set when an
/// authenticate token was accepted).
std::string step(gss_ctx_id_t& context, const std::string& token, std::string& user) {
    const bool negotiate = token.size() >= 12 && memcmp(token.data(), "NTLMSSP\0", 8) == 0 && token[8] == 1;
    if (negotiate)
        deleteContext(context);
    else if (context == GSS_C_NO_CONTEXT)
        return "";
    OM_uint32 minor, ignored;
    gss_buffer_desc in = {token.size(), (void*)token.data()}, out = GSS_C_EMPTY_BUFFER, name = out;
    gss_name_t source = GSS_C_NO_NAME;
    OM_uint32 major = gss_accept_sec_context(&minor, &context, gAcceptor, &in, GSS_C_NO_CHANNEL_BINDINGS,
                                             &source, nullptr, &out, nullptr, nullptr, nullptr);
    const bool failed = GSS_ERROR(major), done = major == GSS_S_COMPLETE;
    std::string challenge;
    if (negotiate && !failed && !done && out.length)
        challenge = encode(std::string((const char*)out.value, out.length));
    if (failed)
        fprintf(stderr, "ntlm_proxy: token refused (major %u, minor %u)\n", major, minor);
    else if (done)
        user = GSS_ERROR(gss_display_name(&ignored, source, &name, nullptr))
                   ? "<unnamed>"
                   : std::string((const char*)name.value, name.length);
    if (failed || done)
        deleteContext(context);
    gss_release_buffer(&ignored, &out);
    gss_release_buffer(&ignored, &name);
    gss_release_name(&ignored, &source);
    return challenge;
}

void serve(int fd) {
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
    std::string buffer, line, user; // user: set once the connection is authenticated
    unsigned requests = 0;
    while (readLine(fd, buffer, line)) {
        if (line.empty())
            continue; // blank lines between requests
        std::string target = line.substr(line.find(' ') + 1);
        target = target.substr(0, target.find(' '));
        std::map<std::string, std::string> headers;
        bool complete = false;
        while (!complete && readLine(fd, buffer, line)) {
            size_t colon = line.find(':'), start = line.find_first_not_of(" \t", colon + 1);
            if (colon != std::string::npos)
                headers[lower(line.substr(0, colon))] = start == std::string::npos ? "" : line.substr(start);
            complete = line.empty();
        }
        size_t length = strtoul(headers["content-length"].c_str(), nullptr, 10);
        while (complete && buffer.size() < length)
            complete = receive(fd, buffer);
        if (!complete)
            break;
        buffer.erase(0, length);
        ++requests;
        const bool close =
            lower(headers["connection"]) == "close" || lower(headers["proxy-connection"]) == "close";

        std::string authorization = headers["proxy-authorization"], token, challenge, reply;
        if (user.empty() && authorization.compare(0, 5, "NTLM ") == 0 &&
            decode(authorization.substr(5), token))
            challenge = step(context, token, user);
        if (!challenge.empty())
            reply = response(407, "Proxy-Authenticate: NTLM " + challenge + "\r\n", "challenge\n", close);
        else if (!user.empty())
            reply = response(200,
                             "X-Request-Count: " + std::to_string(requests) + "\r\nX-NTLM-User: " + user +
                                 "\r\nX-Request-Target: " + target + "\r\n",
                             "authenticated " + user + "\n", close);
        else
            reply = response(407, "Proxy-Authenticate: NTLM\r\n", "proxy authentication required\n", close);
        // A blocking send hands over everything unless the connection failed.
        if (send(fd, reply.data(), reply.size(), MSG_NOSIGNAL) != (ssize_t)reply.size() || close)
            break;
    }
    deleteContext(context);
    ::close(fd);
}

} // namespace

int main(int argc, char** argv) {
    OM_uint32 minor, major;
    if (argc > 1 && strcmp(argv[1], "--probe") == 0) {
        gss_OID_set mechanisms = GSS_C_NO_OID_SET;
        int present = 0;
        if (!GSS_ERROR(gss_indicate_mechs(&minor, &mechanisms)))
            gss_test_oid_set_member(&minor, &NTLMSSP, mechanisms, &present);
        gss_release_oid_set(&minor, &mechanisms);
        return present ? 0 : 1;
    }
    gss_OID_set_desc mechanisms = {1, &NTLMSSP};
    major = gss_acquire_cred(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, &mechanisms, GSS_C_ACCEPT, &gAcceptor,
                             nullptr, nullptr);
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
        for (char c; read(0, &c, 1) > 0;) {
        }
        _exit(0);
    }).detach();
    for (;;)
        if (int fd = accept(listener, nullptr, nullptr); fd >= 0)
            std::thread(serve, fd).detach();
}
