#include <tmain/platform/Application.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <tmain/foundation/Logger.h>
#include <unistd.h>

namespace tarso {
namespace platform {

namespace {
// An XDG base directory: the variable when it holds an absolute path, else
// $HOME plus the default; "" when neither is known.
std::string xdgDir(const char* variable, const char* fallback) {
    const char* v = getenv(variable);
    if (v && v[0] == '/')
        return v;
    const char* home = getenv("HOME");
    return home && *home ? std::string(home) + "/" + fallback : std::string();
}
} // namespace

std::string Application::moduleFileName(void*) {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, (size_t)n) : std::string();
}

void Application::initFolders(const std::string& name) {
    std::string data = xdgDir("XDG_DATA_HOME", ".local/share");
    std::string cache = xdgDir("XDG_CACHE_HOME", ".cache");
    if (!data.empty())
        mWorkingPath = data + "/" + name;
    if (!cache.empty())
        mCachePath = cache + "/" + name;
}

Application::MessageResult Application::messageBox(const char* text, const char* caption, unsigned) {
    logging::Logger::getRootLogger().warn("%s: %s", caption ? caption : "", text ? text : "");
    fprintf(stderr, "%s: %s\n", caption ? caption : "", text ? text : "");
    return MR_OTHER;
}

} // namespace platform
} // namespace tarso
