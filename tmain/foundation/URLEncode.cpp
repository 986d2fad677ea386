#include <tmain/foundation/URLEncode.h>

namespace text {

namespace {

inline bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.' || c == '~';
}

inline int hexValue(unsigned char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

void encodeURL(const char* s, std::string& out) {
    static const char HEX[] = "0123456789ABCDEF";
    out.clear();
    if (!s)
        return;
    for (const unsigned char* p = (const unsigned char*)s; *p; ++p) {
        if (isUnreserved(*p)) {
            out += (char)*p;
        } else {
            out += '%';
            out += HEX[*p >> 4];
            out += HEX[*p & 0x0F];
        }
    }
}

bool decodeURL(const char* s, std::string& out) {
    out.clear();
    if (!s)
        return true;
    for (const unsigned char* p = (const unsigned char*)s; *p; ++p) {
        if (*p != '%') {
            out += (char)*p;
            continue;
        }
        // Short-circuiting keeps the check from reading past a terminating null.
        int hi = hexValue(p[1]);
        int lo = hi < 0 ? -1 : hexValue(p[2]);
        if (lo < 0) {
            out.clear();
            return false;
        }
        out += (char)((hi << 4) | lo);
        p += 2;
    }
    return true;
}

} // namespace text
