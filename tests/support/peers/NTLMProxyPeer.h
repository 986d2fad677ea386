#pragma once
// Starts tests/support/peers/ntlm_proxy.cc (built as TMAIN_NTLM_PROXY) for a
// test: NTLMProxyPeer proxy(usersFile); connect to 127.0.0.1:proxy.port().
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace tmaintest {

class NTLMProxyPeer {
public:
    /// True when GSSAPI offers the NTLMSSP mechanism the peer needs.
    static bool available() {
        return std::system((std::string("'") + TMAIN_NTLM_PROXY + "' --probe >/dev/null 2>&1").c_str()) == 0;
    }

    /// Starts the peer with NTLM_USER_FILE=usersFile (its accounts) and waits
    /// for its port; port() is 0 when it could not start.
    explicit NTLMProxyPeer(const std::string& usersFile) {
        // Close-on-exec, so that no other child keeps the peer's input open.
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0)
            return;
        if (pipe2(out, O_CLOEXEC) != 0) {
            ::close(in[0]), ::close(in[1]);
            return;
        }
        std::string variable = "NTLM_USER_FILE=" + usersFile, path = TMAIN_NTLM_PROXY;
        char* argv[] = {const_cast<char*>("env"), &variable[0], &path[0], nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        if (posix_spawnp(&mPid, "env", &actions, nullptr, argv, environ) != 0)
            mPid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        mStdin = in[1];
        // The first line is the port; end of file means the peer failed.
        FILE* port = fdopen(out[0], "r");
        if (!port || mPid < 0 || fscanf(port, "%u", &mPort) != 1)
            mPort = 0;
        port ? fclose(port) : ::close(out[0]);
    }

    /// Closing its standard input stops the peer.
    ~NTLMProxyPeer() {
        if (mStdin >= 0)
            ::close(mStdin);
        if (mPid > 0)
            waitpid(mPid, nullptr, 0);
    }

    NTLMProxyPeer(const NTLMProxyPeer&) = delete;
    NTLMProxyPeer& operator=(const NTLMProxyPeer&) = delete;

    unsigned port() const { return mPort; }

private:
    pid_t mPid = -1;
    int mStdin = -1;
    unsigned mPort = 0;
};

} // namespace tmaintest
