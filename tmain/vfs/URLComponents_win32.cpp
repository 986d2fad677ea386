// URL splitting with WinINet's InternetCrackUrlA, for URLs with a scheme (local
// paths, which it knows no scheme for, are told apart in URLComponents.cpp).
// The few texts it is lenient with (a port out of range, a scheme that starts
// with a digit) are refused as they are on every platform.
#include <tmain/vfs/detail/URLSplit.h>

#include <windows.h>
#include <wininet.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace tarso {
namespace vfs {

namespace {

bool hasServer(const std::string& scheme) {
    return _stricmp(scheme.c_str(), "http") == 0 || _stricmp(scheme.c_str(), "https") == 0 ||
           _stricmp(scheme.c_str(), "ftp") == 0;
}

/// The explicit port of the authority after "scheme://" (0 when absent); false
/// unless it is digits in 1..65535.
bool explicitPort(const char* authority, unsigned short& port) {
    port = 0;
    const char* end = authority + strcspn(authority, "/?#");
    const char* at = nullptr;
    for (const char* p = authority; p < end; ++p)
        if (*p == '@')
            at = p;
    const char* host = at ? at + 1 : authority;
    const char* colon = nullptr;
    for (const char* p = host; p < end; ++p)
        if (*p == ':')
            colon = p;
        else if (*p == ']')
            colon = nullptr; // a colon inside an IPv6 literal
    if (!colon || colon + 1 == end)
        return true;
    unsigned long value = 0;
    for (const char* p = colon + 1; p < end; ++p) {
        if (!isdigit((unsigned char)*p) || (value = value * 10 + (unsigned long)(*p - '0')) > 65535)
            return false;
    }
    port = (unsigned short)value;
    return value != 0;
}

} // namespace

bool detail::crackSchemeURL(const char* url, const char* colon, URLComponents& out) {
    const bool authority = strncmp(colon + 1, "//", 2) == 0;
    unsigned short port = 0;
    if (authority && !explicitPort(colon + 3, port))
        return false;

    const size_t n = strlen(url) + 1;
    std::vector<char> scheme(n), host(n), user(n), password(n), path(n), extra(n);
    URL_COMPONENTSA parts;
    memset(&parts, 0, sizeof(parts));
    parts.dwStructSize = sizeof(parts);
    parts.lpszScheme = scheme.data();
    parts.dwSchemeLength = (DWORD)n;
    parts.lpszHostName = host.data();
    parts.dwHostNameLength = (DWORD)n;
    parts.lpszUserName = user.data();
    parts.dwUserNameLength = (DWORD)n;
    parts.lpszPassword = password.data();
    parts.dwPasswordLength = (DWORD)n;
    parts.lpszUrlPath = path.data();
    parts.dwUrlPathLength = (DWORD)n;
    parts.lpszExtraInfo = extra.data();
    parts.dwExtraInfoLength = (DWORD)n;
    if (!InternetCrackUrlA(url, 0, 0, &parts))
        return false;
    out.scheme.assign(scheme.data(), parts.dwSchemeLength);
    out.host.assign(host.data(), parts.dwHostNameLength);
    out.user.assign(user.data(), parts.dwUserNameLength);
    out.password.assign(password.data(), parts.dwPasswordLength);
    out.path.assign(path.data(), parts.dwUrlPathLength);
    out.extra.assign(extra.data(), parts.dwExtraInfoLength);
    if (hasServer(out.scheme)) {
        out.port = (unsigned short)parts.nPort;
        return !out.host.empty(); // "http:///x" names no server
    }
    out.port = port;
    if (authority && _stricmp(out.scheme.c_str(), "file") == 0) {
        // The splitter turns a file URL's path into a DOS path; keep it as written.
        const char* host = colon + 3;
        const char* hostEnd = host + strcspn(host, "/?#");
        const char* pathEnd = hostEnd + strcspn(hostEnd, "?#");
        out.host.assign(host, (size_t)(hostEnd - host));
        out.path.assign(hostEnd, (size_t)(pathEnd - hostEnd));
        out.extra = pathEnd;
    }
    return true;
}

} // namespace vfs
} // namespace tarso
