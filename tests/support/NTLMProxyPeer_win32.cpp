#include "peers/NTLMProxyPeer.h"

#include <cstdio>

namespace tmaintest {

NTLMProxyPeer::NTLMProxyPeer(const std::string& program, const std::string& usersFile) {
    // The Linux peer reads its standard input from a FIFO that a sleeping
    // process keeps open, and writes its port into a second one. Killing the
    // sleeper ends the peer's input, which stops it.
    const std::string& d = mDir.path();
    std::string out;
    run("cd '" + d + "' && mkfifo in out && { env NTLM_USER_FILE='" + usersFile + "' '" + program +
            "' <in >out & echo $!; } && { sleep 2147483647 >in & echo $!; } && head -n 1 out",
        &out);
    if (sscanf(out.c_str(), "%d %d %u", &mPid, &mInput, &mPort) != 3)
        mPort = 0;
}

NTLMProxyPeer::~NTLMProxyPeer() {
    if (mInput > 0)
        run("kill " + std::to_string(mInput));
    if (mPid > 0)
        run("while read -r _ _ s _ < /proc/" + std::to_string(mPid) +
            "/stat 2>/dev/null && [ \"$s\" != Z ]; do "
            "sleep 0.01; done");
}

} // namespace tmaintest
