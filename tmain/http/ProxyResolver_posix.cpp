#include <tmain/http/detail/ProxySettings.h>

#include <cerrno>
#include <cstdlib>

namespace tarso {
namespace http {
namespace detail {

namespace {

/// The first of the variables that is set and not empty, or "".
std::string firstSet(const char* name, const char* fallback) {
    for (const char* n : {name, fallback}) {
        const char* value = n ? getenv(n) : nullptr;
        if (value && *value)
            return value;
    }
    return std::string();
}

} // namespace

bool readProxySettings(ProxySettings& settings) {
    settings = ProxySettings();
    // HTTP_PROXY is never read: a CGI program gets the client's "Proxy:"
    // request header under that name.
    settings.httpProxy = firstSet("http_proxy", nullptr);
    settings.httpsProxy = firstSet("https_proxy", "HTTPS_PROXY");
    settings.bypass = firstSet("no_proxy", "NO_PROXY");
    return true;
}

bool queryProxyForURL(const char*, bool, const std::wstring&, std::string& proxy, int& error) {
    proxy.clear();
    error = ENOTSUP;
    return false;
}

} // namespace detail
} // namespace http
} // namespace tarso
