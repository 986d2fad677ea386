// Terminal and Ctrl-C on Windows consoles.
#include "Tool.h"
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace tmaintool {

namespace {
std::atomic<int> gInterrupts{0};

BOOL WINAPI onConsoleEvent(DWORD type) {
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT && type != CTRL_CLOSE_EVENT)
        return FALSE;
    if (gInterrupts++)
        ExitProcess(EXIT_INTERRUPTED); // second Ctrl-C: stop at once
    return TRUE;
}
} // namespace

bool stderrIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

unsigned terminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info))
        return (unsigned)(info.srWindow.Right - info.srWindow.Left + 1);
    return 80;
}

void installInterruptHandler() {
    SetConsoleCtrlHandler(onConsoleEvent, TRUE);
    // The bar's erase-line sequence needs virtual terminal processing.
    HANDLE err = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(err, &mode))
        SetConsoleMode(err, mode | 0x0004 /* ENABLE_VIRTUAL_TERMINAL_PROCESSING */);
}

bool interrupted() {
    return gInterrupts.load() != 0;
}

void setBinaryStdio() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stdin), _O_BINARY);
}

void utcTime(time_t t, struct tm& out) {
    gmtime_s(&out, &t);
}

} // namespace tmaintool
