// The executable's path and the application folders on Windows.
#include "../support/TestSupport.h"
#include <cstdlib>
#include <tmain/platform/Application.h>
#include <windows.h>

using namespace tarso::platform;

std::string exePath() {
    char path[1024];
    return std::string(path, GetModuleFileNameA(nullptr, path, sizeof(path)));
}

TEST(Application, WindowsFolders) {
    const char* appData = getenv("APPDATA");
    const char* common = getenv("ProgramData");
    ASSERT_TRUE(appData && common) << "the environment names no application-data folders";
    Application::ApplicationData d;
    d.mName = "App";
    Application::init(&d);
    EXPECT_JOINED(exePath() + "|" + appData + "\\App|" + common + "\\App|", Application::getExecutablePath(),
                  Application::getWorkingPath(), Application::getCachePath());
}
