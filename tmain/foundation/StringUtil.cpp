#include <cstring>
#include <tmain/foundation/StringUtil.h>

namespace text {

namespace {

inline unsigned char fold(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? (unsigned char)(c + ('a' - 'A')) : c;
}

} // namespace

int StringUtil::compareIgnoreCase(const char* a, const char* b) {
    if (a == b)
        return 0;
    if (!a)
        return -1;
    if (!b)
        return 1;
    const unsigned char* pa = (const unsigned char*)a;
    const unsigned char* pb = (const unsigned char*)b;
    for (;; ++pa, ++pb) {
        unsigned char ca = fold(*pa);
        unsigned char cb = fold(*pb);
        if (ca != cb)
            return ca < cb ? -1 : 1;
        if (ca == 0)
            return 0;
    }
}

const char* StringUtil::containsIgnoreCase(const char* haystack, const char* needle) {
    if (!haystack || !needle)
        return nullptr;
    if (*needle == 0)
        return haystack;
    const unsigned char first = fold((unsigned char)*needle);
    for (const char* h = haystack; *h; ++h) {
        if (fold((unsigned char)*h) != first)
            continue;
        const char* p = h + 1;
        const char* q = needle + 1;
        while (*q && fold((unsigned char)*p) == fold((unsigned char)*q)) {
            ++p;
            ++q;
        }
        if (*q == 0)
            return h;
        // The haystack ran out before the needle did: no later start can match.
        if (*p == 0)
            return nullptr;
    }
    return nullptr;
}

char* StringUtil::duplicate(const char* s) {
    if (!s)
        return nullptr;
    size_t n = std::strlen(s) + 1;
    char* copy = new char[n];
    std::memcpy(copy, s, n);
    return copy;
}

unsigned StringUtil::split(const char* s, const char* delimiters, std::vector<std::string>& out,
                           bool returnEmpty) {
    if (!s || *s == 0)
        return 0;
    if (!delimiters)
        delimiters = "";
    unsigned count = 0;
    const char* start = s;
    for (;;) {
        size_t len = std::strcspn(start, delimiters);
        if (len > 0 || returnEmpty) {
            out.emplace_back(start, len);
            ++count;
        }
        if (start[len] == 0)
            break;
        start += len + 1;
    }
    return count;
}

} // namespace text
