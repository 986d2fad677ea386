#include <tmain/http/URL.h>

#include <climits>
#include <cstring>

namespace tarso {
namespace http {

URL::URL() : mValid(false), mPort(DEFAULT_PORT) {}

URL::URL(const char* text) : URL() {
    parse(text, *this);
}

URL* URL::parse(const char* text) {
    URL* url = new URL();
    parse(text, *url);
    return url;
}

bool URL::parse(const char* text, URL& url) {
    url = URL();
    if (!text)
        return false;

    const char* rest = text;
    const char* colon = strchr(text, ':');
    if (colon && colon[1] == '/') {
        url.mScheme.assign(text, colon - text);
        rest = colon + 1;
    } else {
        url.mScheme = text[0] == '/' ? "file" : "http";
    }
    if (rest[0] == '/' && rest[1] == '/')
        rest += 2;

    bool hostSet = false;
    colon = strchr(rest, ':');
    if (colon && colon[1] >= '0' && colon[1] <= '9') {
        url.mHost.assign(rest, colon - rest);
        hostSet = true;
        // Saturates instead of wrapping: an absurd port must not alias a real one.
        unsigned long long port = 0;
        const char* p = colon + 1;
        for (; *p >= '0' && *p <= '9'; ++p) {
            if (port <= UINT_MAX)
                port = port * 10 + (unsigned)(*p - '0');
        }
        url.mPort = port > UINT_MAX ? UINT_MAX : (unsigned)port;
        rest = p;
    }

    // A "/" inside the query belongs to the query, not to the path.
    const char* question = strchr(rest, '?');
    const char* restEnd = question ? question : rest + strlen(rest);
    const char* slash = (const char*)memchr(rest, '/', restEnd - rest);
    if (slash) {
        if (!hostSet)
            url.mHost.assign(rest, slash - rest);
        url.mPath.assign(slash, restEnd - slash);
    } else if (!hostSet) {
        url.mHost.assign(rest, restEnd - rest);
    }
    if (url.mPath.empty())
        url.mPath = "/";
    if (question)
        url.mQuery = question + 1;
    url.mValid = true;
    return true;
}

void URL::setPath(const char* path) {
    mPath = path ? path : "";
    mText.clear();
}

void URL::setQuery(const char* query) {
    mQuery = query ? query : "";
}

void URL::appendQuery(const char* query) {
    if (!query || !*query)
        return;
    if (!mQuery.empty() && mQuery.back() != '&')
        mQuery += '&';
    if (*query == '&')
        ++query;
    mQuery += query;
    mText.clear();
}

const char* URL::toString() const {
    if (mText.empty()) {
        std::string text = mScheme + "://" + mHost;
        if (mPort != 0 && mPort != DEFAULT_PORT && mPort < 65536)
            text += ":" + std::to_string(mPort);
        text += mPath;
        if (!mQuery.empty())
            text += "?" + mQuery;
        mText.swap(text);
    }
    return mText.c_str();
}

} // namespace http
} // namespace tarso
