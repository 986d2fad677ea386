#pragma once
// Starts tests/support/peers/ntlm_proxy.cc (built as TMAIN_NTLM_PROXY) for a
// test: NTLMProxyPeer proxy(usersFile); connect to 127.0.0.1:proxy.port().
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

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
        int in[2], out[2];
        if (pipe(in) != 0)
            return;
        if (pipe(out) != 0) {
            ::close(in[0]), ::close(in[1]);
            return;
        }
        std::vector<std::string> env;
        for (char** e = environ; *e; ++e)
            if (strncmp(*e, "NTLM_USER_FILE=", 15) != 0)
                env.push_back(*e);
        env.push_back("NTLM_USER_FILE=" + usersFile);
        std::vector<char*> envp;
        for (auto& e : env)
            envp.push_back(&e[0]);
        envp.push_back(nullptr);
        std::string path = TMAIN_NTLM_PROXY;
        char* argv[] = {&path[0], nullptr};

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        for (int fd : {in[0], in[1], out[0], out[1]})
            posix_spawn_file_actions_addclose(&actions, fd);
        if (posix_spawn(&mPid, path.c_str(), &actions, nullptr, argv, envp.data()) != 0)
            mPid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        mStdin = in[1];
        // The first line is the port; end of file means the peer failed.
        std::string line;
        char c;
        while (mPid > 0 && read(out[0], &c, 1) == 1 && c != '\n')
            line += c;
        ::close(out[0]);
        mPort = (unsigned)strtoul(line.c_str(), nullptr, 10);
    }

    /// Closing its standard input stops the peer.
    ~NTLMProxyPeer() {
        if (mStdin >= 0)
            ::close(mStdin);
        if (mPid > 0) {
            int status;
            waitpid(mPid, &status, 0);
        }
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
