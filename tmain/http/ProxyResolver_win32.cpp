// The current user's proxy settings and automatic proxy queries through WinHTTP.
#include <tmain/http/detail/ProxySettings.h>

#include <windows.h>
#include <winhttp.h>

#include <tmain/foundation/Unicode.h>

namespace tarso {
namespace http {
namespace detail {

namespace {

/// The UTF-8 text of a WinHTTP string, which is then freed; "" for null.
std::string takeUTF8(LPWSTR text) {
    std::string out;
    if (text) {
        text::toUTF8(text, out);
        GlobalFree(text);
    }
    return out;
}

/// The first entry of a WinHTTP proxy list ("host:port;host2:port" or
/// "http=host:port https=..."), for the given scheme where entries name one.
std::string firstProxy(const std::string& list, const char* scheme) {
    std::string fallback;
    size_t pos = 0;
    while (pos < list.size()) {
        size_t end = list.find_first_of("; ", pos);
        std::string entry = list.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        pos = end == std::string::npos ? list.size() : end + 1;
        if (entry.empty())
            continue;
        size_t equals = entry.find('=');
        if (equals == std::string::npos) {
            if (fallback.empty())
                fallback = entry;
            continue;
        }
        if (_stricmp(entry.substr(0, equals).c_str(), scheme) == 0)
            return entry.substr(equals + 1);
    }
    return fallback;
}

} // namespace

bool readProxySettings(ProxySettings& settings) {
    settings = ProxySettings();
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config = {};
    if (!WinHttpGetIEProxyConfigForCurrentUser(&config))
        return false;
    settings.autoDetect = config.fAutoDetect != FALSE;
    if (config.lpszAutoConfigUrl) {
        settings.autoConfigURL = config.lpszAutoConfigUrl;
        GlobalFree(config.lpszAutoConfigUrl);
    }
    std::string proxy = takeUTF8(config.lpszProxy);
    settings.httpProxy = firstProxy(proxy, "http");
    settings.httpsProxy = firstProxy(proxy, "https");
    settings.bypass = takeUTF8(config.lpszProxyBypass);
    return true;
}

bool queryProxyForURL(const char* url, bool autoDetect, const std::wstring& configURL, std::string& proxy,
                      int& error) {
    proxy.clear();
    error = 0;
    HINTERNET session = WinHttpOpen(L"tarso::http::ProxyResolver", WINHTTP_ACCESS_TYPE_NO_PROXY,
                                    WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0);
    if (!session) {
        error = (int)GetLastError();
        return false;
    }
    WINHTTP_AUTOPROXY_OPTIONS options = {};
    if (autoDetect) {
        options.dwFlags = WINHTTP_AUTOPROXY_AUTO_DETECT;
        options.dwAutoDetectFlags = WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A;
    } else {
        options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
        options.lpszAutoConfigUrl = configURL.c_str();
    }
    options.fAutoLogonIfChallenged = TRUE;
    std::wstring wideURL;
    text::toUnicode(url ? url : "", wideURL);
    WINHTTP_PROXY_INFO info = {};
    bool ok = WinHttpGetProxyForUrl(session, wideURL.c_str(), &options, &info) != FALSE;
    if (!ok)
        error = (int)GetLastError();
    std::string list = takeUTF8(info.lpszProxy);
    takeUTF8(info.lpszProxyBypass);
    WinHttpCloseHandle(session);
    if (!ok)
        return false;
    if (info.dwAccessType == WINHTTP_ACCESS_TYPE_NAMED_PROXY) {
        proxy = firstProxy(list, url && _strnicmp(url, "https:", 6) == 0 ? "https" : "http");
    }
    return true;
}

} // namespace detail
} // namespace http
} // namespace tarso
