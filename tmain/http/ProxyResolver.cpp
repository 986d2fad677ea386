#include <tmain/http/ProxyResolver.h>

#include <memory>
#include <mutex>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/StringUtil.h>
#include <tmain/foundation/Unicode.h>
#include <tmain/http/AuthenticationProcessNTLM.h>
#include <tmain/http/Request.h>
#include <tmain/http/Response.h>
#include <tmain/http/URL.h>
#include <tmain/http/detail/ProxySettings.h>

using logging::Logger;

namespace tarso {
namespace http {

bool ProxyResolver::mINITIALIZED = false;
ProxyResolver::ResolveCallback* ProxyResolver::mRESOLVE_CALLBACK = nullptr;

namespace {

const char* const PROXY_AUTHENTICATE = "proxy-authenticate";

/// The settings read by initialize(), guarded by the mutex together with
/// mINITIALIZED and mRESOLVE_CALLBACK.
struct ResolverState {
    bool hasConfiguration = false;
    bool autoDetect = false;
    std::wstring autoConfigURL;
    Proxy httpProxy;
    Proxy httpsProxy;
    std::string bypass;
};

std::mutex& stateMutex() {
    static std::mutex m;
    return m;
}

ResolverState& state() {
    static ResolverState s;
    return s;
}

/// "host:port" or a URL; false when no host comes out of it.
bool parseProxy(const std::string& text, Proxy& proxy) {
    proxy.clear();
    if (text.empty())
        return false;
    URL url(text.c_str());
    proxy.set(url.getHost(), url.getPort());
    return proxy.isValid();
}

/// The first value of the response's "proxy-authenticate" that names `scheme`, or null.
const char* offered(const Response* response, const char* scheme) {
    const std::vector<std::string>* values = response->getHeaders().getValues(PROXY_AUTHENTICATE);
    if (values)
        for (const std::string& value : *values)
            if (text::StringUtil::containsIgnoreCase(value.c_str(), scheme))
                return value.c_str();
    return nullptr;
}

} // namespace

bool ProxyResolver::initialize() {
    return _initialize();
}

void ProxyResolver::shutdown() {
    _shutdown();
}

bool ProxyResolver::_initialize() {
    detail::ProxySettings settings;
    bool ok = detail::readProxySettings(settings);
    ResolverState fresh;
    fresh.autoDetect = settings.autoDetect;
    fresh.autoConfigURL = settings.autoConfigURL;
    fresh.bypass = settings.bypass;
    Logger& log = Logger::mROOT_LOGGER;
    if (fresh.autoDetect)
        log.info("ProxyResolver: auto-detect");
    if (!fresh.autoConfigURL.empty()) {
        std::string configURL;
        text::toUTF8(fresh.autoConfigURL.c_str(), configURL);
        log.info("ProxyResolver: configURL:%s", configURL.c_str());
    }
    bool haveHttp = parseProxy(settings.httpProxy, fresh.httpProxy);
    if (haveHttp)
        log.info("ProxyResolver: %s:%d", fresh.httpProxy.getHost(), (int)fresh.httpProxy.getPort());
    bool haveHttps = parseProxy(settings.httpsProxy, fresh.httpsProxy);
    // One proxy for both schemes is logged once.
    if (haveHttps && !(haveHttp && fresh.httpProxy.getPort() == fresh.httpsProxy.getPort() &&
                       std::string(fresh.httpProxy.getHost()) == fresh.httpsProxy.getHost()))
        log.info("ProxyResolver: %s:%d", fresh.httpsProxy.getHost(), (int)fresh.httpsProxy.getPort());
    if (!fresh.bypass.empty())
        log.info("ProxyResolver bypass: %s", fresh.bypass.c_str());
    fresh.hasConfiguration = fresh.autoDetect || !fresh.autoConfigURL.empty() || haveHttp || haveHttps;
    if (!fresh.hasConfiguration)
        log.info("ProxyResolver: direct connection");

    std::lock_guard<std::mutex> lock(stateMutex());
    state() = std::move(fresh);
    mINITIALIZED = true;
    return ok;
}

void ProxyResolver::_shutdown() {
    std::lock_guard<std::mutex> lock(stateMutex());
    state() = ResolverState();
    mINITIALIZED = false;
}

bool ProxyResolver::resolve(const URL* url, Proxy& proxy) {
    proxy.clear();
    bool initialized;
    std::unique_ptr<ResolveCallback> callback;
    {
        std::lock_guard<std::mutex> lock(stateMutex());
        initialized = mINITIALIZED;
        // A copy: the callback runs outside the lock and may itself resolve.
        if (mRESOLVE_CALLBACK && !mRESOLVE_CALLBACK->empty())
            callback.reset(new ResolveCallback(*mRESOLVE_CALLBACK));
    }
    if (!initialized) {
        Logger::mROOT_LOGGER.warn("ProxyResolver not yet initialized. No proxy will be ever resolved!");
        return false;
    }
    if (!url)
        return false;
    if (callback)
        (*callback)(url, proxy);
    else
        _resolve(url, proxy);
    return proxy.isValid();
}

void ProxyResolver::_resolve(const URL* url, Proxy& proxy) {
    proxy.setPort(0);
    ResolverState settings;
    {
        std::lock_guard<std::mutex> lock(stateMutex());
        if (!state().hasConfiguration)
            return;
        settings = state();
    }
    if (settings.autoDetect || !settings.autoConfigURL.empty()) {
        std::string found;
        int error = 0;
        if (!detail::queryProxyForURL(url->toString(), settings.autoDetect, settings.autoConfigURL, found,
                                      error)) {
            Logger::mROOT_LOGGER.warn("Proxy query failed (err %d)", error);
            return;
        }
        parseProxy(found, proxy);
        return;
    }
    const bool secure = text::StringUtil::compareIgnoreCase(url->getScheme(), "https") == 0;
    const Proxy& configured = secure ? settings.httpsProxy : settings.httpProxy;
    if (!configured.isValid())
        return;
    if (!settings.bypass.empty() && settings.bypass.find(url->getHost()) != std::string::npos)
        return;
    proxy = configured;
}

void ProxyResolver::setCallback(ResolveCallback* callback) {
    ResolveCallback* old;
    {
        std::lock_guard<std::mutex> lock(stateMutex());
        old = mRESOLVE_CALLBACK;
        mRESOLVE_CALLBACK = callback;
    }
    if (old != callback)
        delete old;
}

void ProxyResolver::clearCallback() {
    setCallback(nullptr);
}

AuthenticationProcess* ProxyResolver::initAuthentication(Request* request, const Response* response,
                                                         Connection* connection) {
    Logger& log = Logger::mROOT_LOGGER;
    if (request && response) {
        if (offered(response, "NTLM"))
            return initAuthenticationNTLM(request, response, connection);
        if (offered(response, "Digest")) {
            log.warn("ProxyResolver::authenticate:unsupported authentication method (Digest)");
            return nullptr;
        }
        if (offered(response, "Basic")) {
            log.warn("ProxyResolver::authenticate:unsupported authentication method (Basic)");
            return nullptr;
        }
    }
    log.warn("ProxyResolver::authenticate:no suitable authentication method found (NTLM, Digest, Basic)");
    return nullptr;
}

AuthenticationProcess* ProxyResolver::initAuthenticationNTLM(Request* request, const Response* response,
                                                             Connection*) {
    // The context is made for the proxy the request went through.
    Proxy proxy;
    bool initialized;
    {
        std::lock_guard<std::mutex> lock(stateMutex());
        initialized = mINITIALIZED;
    }
    if (initialized)
        resolve(&request->getURL(), proxy);
    std::unique_ptr<AuthenticationProcessNTLM> process(new AuthenticationProcessNTLM(proxy.getHost()));
    if (!process->init(request, response)) {
        process->shutdown();
        return nullptr;
    }
    return process.release();
}

void ProxyResolver::endAuthentication(AuthenticationProcess* process) {
    if (process) {
        process->shutdown();
        delete process;
    }
}

} // namespace http
} // namespace tarso
