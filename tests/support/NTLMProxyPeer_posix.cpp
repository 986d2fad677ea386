#include "peers/NTLMProxyPeer.h"

#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace tmaintest {

NTLMProxyPeer::NTLMProxyPeer(const std::string& program, const std::string& usersFile) {
    // Close-on-exec, so that no other child keeps the peer's input open.
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0)
        return;
    if (pipe2(out, O_CLOEXEC) != 0) {
        ::close(in[0]), ::close(in[1]);
        return;
    }
    std::string variable = "NTLM_USER_FILE=" + usersFile, path = program;
    char* argv[] = {const_cast<char*>("env"), &variable[0], &path[0], nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    pid_t pid;
    mPid = posix_spawnp(&pid, "env", &actions, nullptr, argv, environ) == 0 ? pid : -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    mInput = in[1];
    // The first line is the port; end of file means the peer failed.
    FILE* port = fdopen(out[0], "r");
    if (!port || mPid < 0 || fscanf(port, "%u", &mPort) != 1)
        mPort = 0;
    port ? fclose(port) : ::close(out[0]);
}

NTLMProxyPeer::~NTLMProxyPeer() {
    if (mInput >= 0)
        ::close(mInput);
    if (mPid > 0)
        waitpid(mPid, nullptr, 0);
}

} // namespace tmaintest
