// The executable's path and the application folders on Linux.
#include "../support/TestSupport.h"
#include <climits>
#include <tmain/platform/Application.h>
#include <unistd.h>

using namespace tarso::platform;

std::string exePath() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf);
    return std::string(buf, n > 0 ? (size_t)n : 0);
}

TEST(Application, LinuxFolders) {
    setenv("XDG_DATA_HOME", "/data/home", 1);
    setenv("XDG_CACHE_HOME", "relative", 1);
    Application::ApplicationData d;
    d.mName = "App";
    Application::init(&d);
    EXPECT_JOINED(exePath() + "|/data/home/App|" + std::string(getenv("HOME")) +
                      "/.cache/App|/data/home/App|",
                  Application::getExecutablePath(), Application::getWorkingPath(),
                  Application::getCachePath(), Application::getExternalWorkingPath());
    EXPECT_EQ(Application::MR_OTHER, Application::messageBox("text", "caption", 0));
    unsetenv("XDG_DATA_HOME");
    unsetenv("XDG_CACHE_HOME");
}
