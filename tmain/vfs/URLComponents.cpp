// What both platforms decide alike before their URL splitters run: local
// paths (absolute, relative, with a drive letter) and the scheme's syntax.
#include <tmain/vfs/URLComponents.h>
#include <tmain/vfs/detail/URLSplit.h>

#include <cctype>
#include <cstring>

namespace tarso {
namespace vfs {

namespace {

bool isLocalPath(const char* url) {
    if (url[0] == '/' || url[0] == '\\' || url[0] == '.')
        return true;
    // A drive letter: "C:\dir" or "C:/dir".
    return isalpha((unsigned char)url[0]) && url[1] == ':' &&
           (url[2] == '\\' || url[2] == '/' || url[2] == 0);
}

} // namespace

bool URLComponents::crack(const char* url, URLComponents& out) {
    out = URLComponents();
    if (!url || !*url)
        return false;
    if (isLocalPath(url)) {
        out.scheme = "file";
        out.path = url;
        return true;
    }
    const char* colon = strchr(url, ':');
    // A scheme is letters, digits, '+', '-' or '.', starting with a letter.
    bool schemeOk = colon && colon > url && isalpha((unsigned char)url[0]);
    for (const char* p = url; schemeOk && p < colon; ++p)
        if (!isalnum((unsigned char)*p) && *p != '+' && *p != '-' && *p != '.')
            schemeOk = false;
    if (!schemeOk) {
        // No scheme at all: a relative local path.
        if (colon)
            return false;
        out.scheme = "file";
        out.path = url;
        return true;
    }
    return detail::crackSchemeURL(url, colon, out);
}

} // namespace vfs
} // namespace tarso
