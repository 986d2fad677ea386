#include <tmain/platform/CommandLineParser.h>

#include <climits>
#include <unistd.h>

namespace tarso {
namespace platform {

std::string CommandLineParser::executablePath() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, (size_t)n) : std::string();
}

} // namespace platform
} // namespace tarso
