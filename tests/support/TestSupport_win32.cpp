#include "TestSupport.h"

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <windows.h>

namespace tmaintest {

namespace {

void startWinSock() {
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    if (!started)
        throw std::runtime_error("WSAStartup failed");
}

/// The Unix name of a Windows path under wine (so that shell commands can use
/// it too), the path with forward slashes elsewhere.
std::string portablePath(const std::string& windowsPath) {
    using ToUnix = char*(CDECL*)(LPCWSTR);
    FARPROC proc = GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name");
    if (proc) {
        std::wstring wide(windowsPath.size() + 1, L'\0');
        int n = MultiByteToWideChar(CP_ACP, 0, windowsPath.c_str(), -1, &wide[0], (int)wide.size());
        if (char* unix = n > 0 ? reinterpret_cast<ToUnix>(reinterpret_cast<void (*)()>(proc))(wide.c_str())
                               : nullptr) {
            std::string path(unix);
            HeapFree(GetProcessHeap(), 0, unix);
            return path;
        }
    }
    std::string path = windowsPath;
    for (char& c : path)
        if (c == '\\')
            c = '/';
    return path;
}

void removeTree(const std::string& path) {
    WIN32_FIND_DATAA entry;
    HANDLE find = FindFirstFileA((path + "/*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            std::string name = entry.cFileName, full = path + "/" + name;
            if (name == "." || name == "..")
                continue;
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
                !(entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
                removeTree(full);
            } else {
                SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileA(full.c_str());
            }
        } while (FindNextFileA(find, &entry));
        FindClose(find);
    }
    RemoveDirectoryA(path.c_str());
}

/// `text` as one argument of a Windows command line (the C runtime's rules:
/// backslashes double only before a quote or the closing quote).
std::string quoteArgument(const std::string& text) {
    std::string quoted = "\"";
    size_t backslashes = 0;
    for (char c : text) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        quoted.append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');
        quoted += c;
        backslashes = 0;
    }
    return quoted.append(2 * backslashes, '\\') + "\"";
}

} // namespace

TempDir::TempDir() {
    // The temporary folder's own name, symbolic links resolved (wine's is
    // dosdevices/c:/..., whose colon some tools read as a host name); found
    // once. Win32 calls take the Unix name as it is (drive Z: is "/").
    static const std::string base = [] {
        char windowsBase[MAX_PATH + 1];
        DWORD n = GetTempPathA(sizeof(windowsBase), windowsBase);
        if (n == 0 || n > MAX_PATH)
            throw std::runtime_error("GetTempPathA failed");
        std::string path = portablePath(windowsBase), resolved;
        if (underWine() && run("realpath '" + path + "'", &resolved) == 0)
            path = resolved.substr(0, resolved.find('\n'));
        return path.back() == '/' ? path : path + "/";
    }();
    static std::atomic<unsigned> counter{0};
    for (;;) {
        std::string name = base + "tmain-test-" + std::to_string(GetCurrentProcessId()) + "-" +
                           std::to_string(GetTickCount()) + "-" + std::to_string(counter++);
        if (CreateDirectoryA(name.c_str(), nullptr)) {
            mPath = name;
            return;
        }
        if (GetLastError() != ERROR_ALREADY_EXISTS)
            throw std::runtime_error("CreateDirectoryA failed for " + name);
    }
}

TempDir::~TempDir() {
    removeTree(mPath);
}

bool underWine() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

int run(const std::string& command, std::string* output) {
    // wine starts a Linux program with CreateProcessA but hands it neither a
    // pipe end nor a process handle to wait on. So bash connects back to a
    // loopback socket (its /dev/tcp) and sends the command's standard output
    // followed by its exit status; the end of that stream is the end of the
    // command. The command itself runs under /bin/sh, as with popen.
    startWinSock();
    SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(address);
    if (listener == INVALID_SOCKET || bind(listener, (sockaddr*)&address, sizeof(address)) != 0 ||
        listen(listener, 1) != 0 || getsockname(listener, (sockaddr*)&address, &length) != 0) {
        closesocket(listener);
        return -1;
    }
    static const std::string marker = "\n@tmain-exit-status@";
    const std::string script = "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(ntohs(address.sin_port)) +
                               " || exit 1; /bin/sh -c \"$0\" </dev/null >&3 3>&-; printf '\\n@tmain-exit-"
                               "status@%d' \"$?\" >&3";
    std::string line = "/bin/bash -c " + quoteArgument(script) + " " + quoteArgument(command);
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
        closesocket(listener);
        return -1;
    }
    // For a Linux program wine fills PROCESS_INFORMATION with stale stack
    // contents: closing those "handles" closed unrelated sockets of this
    // process. They are left alone (nothing else can be done with them).
    // bash connects as soon as it runs; the limit only stops a wait for a
    // shell that died before it could.
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(listener, &ready);
    timeval limit{60, 0};
    SOCKET connection = select(0, &ready, nullptr, nullptr, &limit) == 1 ? accept(listener, nullptr, nullptr)
                                                                         : INVALID_SOCKET;
    closesocket(listener);
    if (connection == INVALID_SOCKET)
        return -1;
    std::string received;
    char buf[65536];
    for (int n; (n = recv(connection, buf, sizeof(buf), 0)) > 0;)
        received.append(buf, (size_t)n);
    closesocket(connection);
    size_t end = received.rfind(marker);
    if (output)
        *output = received.substr(0, end);
    return end == std::string::npos ? -1 : atoi(received.c_str() + end + marker.size());
}

} // namespace tmaintest
