#pragma once
#include <tmain/foundation/Callback.h>
#include <tmain/http/Proxy.h>

namespace tarso {
namespace http {

class AuthenticationProcess;
class Connection;
class Request;
class Response;
class URL;

/// Chooses, for each URL, a proxy or a direct connection, from the current
/// user's proxy settings (read once by initialize()) or from an application
/// callback; and starts proxy authentication when a proxy answers 407.
/// Process-wide; resolve() may be called from any thread.
///
/// Settings: on Windows the user's Internet settings; elsewhere the
/// environment: http_proxy for http URLs (and any scheme but https; the upper
/// case HTTP_PROXY is never read), https_proxy or HTTPS_PROXY for https URLs,
/// no_proxy or NO_PROXY as the bypass text. A host that occurs anywhere in
/// the bypass text goes direct (plain substring search: no lists, no
/// wildcards).
class TMAIN_API ProxyResolver {
public:
    typedef ::core::Callback<void, const URL*, Proxy&> ResolveCallback;

    /// True between initialize() and shutdown(); before, every URL goes direct.
    static bool mINITIALIZED;
    /// When set (a heap object the resolver owns), it decides every URL: a
    /// proxy it leaves empty means direct, without looking at the settings.
    static ResolveCallback* mRESOLVE_CALLBACK;

    /// Reads the settings and logs what was found. False when they could not
    /// be read (every URL then goes direct).
    static bool initialize();
    /// Forgets the settings; the callback stays.
    static void shutdown();
    /// Fills `proxy` for `url` (cleared first) and returns proxy.isValid().
    static bool resolve(const URL* url, Proxy& proxy);
    /// Installs a callback (null for none), deleting the previous one.
    static void setCallback(ResolveCallback* callback);
    /// Deletes the callback.
    static void clearCallback();

    /// Starts the authentication a 407 response asks for: a new process owned
    /// by the caller, or null (with a warning) when no supported scheme is
    /// offered or the process could not start. Only NTLM is supported.
    static AuthenticationProcess* initAuthentication(Request* request, const Response* response,
                                                     Connection* connection);
    /// Shuts the process down and deletes it (null is allowed).
    static void endAuthentication(AuthenticationProcess* process);

private:
    static bool _initialize();
    static void _shutdown();
    static void _resolve(const URL* url, Proxy& proxy);
    static AuthenticationProcess* initAuthenticationNTLM(Request* request, const Response* response,
                                                         Connection* connection);
};

} // namespace http
} // namespace tarso
