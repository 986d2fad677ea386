#pragma once
// Starts tests/support/peers/ntlm_proxy.cc (built as TMAIN_NTLM_PROXY) for a
// test: NTLMProxyPeer proxy(usersFile); connect to 127.0.0.1:proxy.port().
// The Windows build runs the Linux build's program (it runs under wine).
#include "../TestSupport.h"
#include <string>

#ifndef TMAIN_NTLM_PROXY
#define TMAIN_NTLM_PROXY "tmain_ntlm_proxy" // the build did not say where the peer is
#endif

namespace tmaintest {

class NTLMProxyPeer {
public:
    /// True when GSSAPI offers the NTLMSSP mechanism the peer needs.
    static bool available() {
        return run(std::string("'") + TMAIN_NTLM_PROXY + "' --probe >/dev/null 2>&1") == 0;
    }

    /// Starts the peer with NTLM_USER_FILE=usersFile (its accounts) and waits
    /// for its port; port() is 0 when it could not start.
    explicit NTLMProxyPeer(const std::string& usersFile) : NTLMProxyPeer(TMAIN_NTLM_PROXY, usersFile) {}
    NTLMProxyPeer(const std::string& program, const std::string& usersFile);
    /// The end of its standard input stops the peer; returns once it exited.
    ~NTLMProxyPeer();

    NTLMProxyPeer(const NTLMProxyPeer&) = delete;
    NTLMProxyPeer& operator=(const NTLMProxyPeer&) = delete;

    unsigned port() const { return mPort; }

private:
    int mPid = -1;
    /// The write end of the peer's standard input (POSIX); the pid of the
    /// process that holds it open (Windows).
    int mInput = -1;
    unsigned mPort = 0;
    TempDir mDir;
};

} // namespace tmaintest
