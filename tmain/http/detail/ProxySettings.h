#pragma once
/// The platform's proxy settings under ProxyResolver: ProxyResolver.cpp holds
/// the selection logic, ProxyResolver_posix.cpp and ProxyResolver_win32.cpp
/// read the settings and run automatic proxy queries.

#include <string>

namespace tarso {
namespace http {
namespace detail {

/// The current user's proxy settings. Empty texts mean "not set".
struct ProxySettings {
    bool autoDetect = false;
    /// Address of a proxy auto-configuration script.
    std::wstring autoConfigURL;
    /// Proxy text ("host:port" or a URL) for http URLs and every scheme but https.
    std::string httpProxy;
    /// Proxy text for https URLs.
    std::string httpsProxy;
    /// Hosts that go direct, as one text.
    std::string bypass;
};

/// Win32: WinHttpGetIEProxyConfigForCurrentUser: fAutoDetect, lpszAutoConfigUrl,
/// lpszProxy (for both schemes, in UTF-8) and lpszProxyBypass, each freed with
/// GlobalFree. POSIX: http_proxy (never HTTP_PROXY); https_proxy, else
/// HTTPS_PROXY; no_proxy, else NO_PROXY; no automatic configuration.
/// False when the settings could not be read.
bool readProxySettings(ProxySettings& settings);

/// The proxy an automatic configuration gives for `url`, as "host:port".
/// Win32: WinHttpOpen("tarso::http::ProxyResolver", WINHTTP_ACCESS_TYPE_NO_PROXY),
/// WinHttpGetProxyForUrl on the UTF-16 url with WINHTTP_AUTOPROXY_AUTO_DETECT
/// (DHCP and DNS) when autoDetect, else WINHTTP_AUTOPROXY_CONFIG_URL with
/// configURL, and WinHttpCloseHandle. On failure returns false with
/// GetLastError() in `error`. POSIX: there is no automatic configuration;
/// returns false with ENOTSUP.
bool queryProxyForURL(const char* url, bool autoDetect, const std::wstring& configURL, std::string& proxy,
                      int& error);

} // namespace detail
} // namespace http
} // namespace tarso
