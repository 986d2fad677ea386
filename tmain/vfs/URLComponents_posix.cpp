// URL splitting for POSIX systems. It follows what the Windows splitter
// reports for the same text, so both platforms choose the same file system.
#include <tmain/vfs/detail/URLSplit.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace tarso {
namespace vfs {

namespace {

unsigned short defaultPort(const std::string& scheme) {
    std::string s;
    for (char c : scheme)
        s += (char)tolower((unsigned char)c);
    if (s == "http")
        return 80;
    if (s == "https")
        return 443;
    if (s == "ftp")
        return 21;
    return 0;
}

} // namespace

bool detail::crackSchemeURL(const char* url, const char* colon, URLComponents& out) {
    out.scheme.assign(url, (size_t)(colon - url));
    const char* rest = colon + 1;
    out.port = defaultPort(out.scheme);
    if (strncmp(rest, "//", 2) != 0) {
        // "scheme:opaque" has no authority; everything is the path.
        out.path = rest;
        return true;
    }
    rest += 2;
    const char* authEnd = rest + strcspn(rest, "/?#");
    std::string authority(rest, (size_t)(authEnd - rest));
    size_t at = authority.rfind('@');
    if (at != std::string::npos) {
        std::string userinfo = authority.substr(0, at);
        authority = authority.substr(at + 1);
        size_t c = userinfo.find(':');
        out.user = userinfo.substr(0, c);
        if (c != std::string::npos)
            out.password = userinfo.substr(c + 1);
    }
    size_t portColon = authority.rfind(':');
    if (portColon != std::string::npos && authority.find(']', portColon) == std::string::npos) {
        std::string port = authority.substr(portColon + 1);
        authority = authority.substr(0, portColon);
        if (!port.empty()) {
            char* end = nullptr;
            unsigned long p = strtoul(port.c_str(), &end, 10);
            if (*end || p == 0 || p > 65535)
                return false;
            out.port = (unsigned short)p;
        }
    }
    out.host = authority;
    bool isFile = defaultPort(out.scheme) == 0;
    if (out.host.empty() && !isFile)
        return false; // "http:///x" names no server
    const char* pathEnd = authEnd + strcspn(authEnd, "?#");
    out.path.assign(authEnd, (size_t)(pathEnd - authEnd));
    out.extra = pathEnd;
    return true;
}

} // namespace vfs
} // namespace tarso
