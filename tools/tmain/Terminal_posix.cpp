// Terminal and signals on POSIX systems.
#include "Tool.h"
#include <atomic>
#include <csignal>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tmaintool {

namespace {
volatile sig_atomic_t gInterrupts = 0;

void onSignal(int sig) {
    if (gInterrupts++) {
        // Second Ctrl-C: the user does not want to wait for a clean stop.
        signal(sig, SIG_DFL);
        raise(sig);
    }
}
} // namespace

bool stderrIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

unsigned terminalWidth() {
    winsize ws{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0)
        return ws.ws_col;
    return 80;
}

void installInterruptHandler() {
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sa.sa_flags = SA_RESTART; // reads under way finish; the loop around them looks at the flag
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    // A closed pipe on standard output is a write error, not a silent death.
    signal(SIGPIPE, SIG_IGN);
}

bool interrupted() {
    return gInterrupts != 0;
}

void setBinaryStdio() {}

void utcTime(time_t t, struct tm& out) {
    gmtime_r(&t, &out);
}

} // namespace tmaintool
