#include <tmain/platform/CommandLineParser.h>

#include <windows.h>

namespace tarso {
namespace platform {

std::string CommandLineParser::executablePath() {
    char buf[MAX_PATH];
    DWORD n = GetModuleFileNameA(NULL, buf, MAX_PATH);
    return std::string(buf, n < MAX_PATH ? n : 0);
}

} // namespace platform
} // namespace tarso
