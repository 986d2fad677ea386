// The executable's path, the application folders and the message box on Windows.
#include "../support/TestSupport.h"
#include <atomic>
#include <cstdlib>
#include <thread>
#include <tmain/platform/Application.h>
#include <windows.h>

using namespace tarso::platform;

std::string exePath() {
    wchar_t wide[1024];
    DWORD n = GetModuleFileNameW(nullptr, wide, 1024);
    char narrow[4096];
    int m = n ? WideCharToMultiByte(CP_ACP, 0, wide, (int)n, narrow, sizeof(narrow), nullptr, nullptr) : 0;
    return std::string(narrow, m > 0 ? (size_t)m : 0);
}

TEST(Application, WindowsFolders) {
    const char* appData = getenv("APPDATA");
    const char* common = getenv("ProgramData") ? getenv("ProgramData") : getenv("ALLUSERSPROFILE");
    ASSERT_TRUE(appData && common) << "the environment names no application-data folders";
    Application::ApplicationData d;
    d.mName = "App";
    d.mInstance = GetModuleHandleA(nullptr);
    Application::init(&d);
    EXPECT_JOINED(
        exePath() + "|" + appData + "\\App|" + common + "\\App|" + appData + "\\App|" + common + "\\App|",
        Application::getExecutablePath(), Application::getWorkingPath(), Application::getCachePath(),
        Application::getExternalWorkingPath(), Application::getExternalCachePath());
}

bool underWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version");
}

TEST(Application, MessageBoxAnswers) {
    // Each box is answered by a thread that presses one of its buttons.
    const struct {
        unsigned style, button;
        Application::MessageResult want;
    } cases[] = {{MB_YESNO, IDNO, Application::MR_NO},
                 {MB_YESNO, IDYES, Application::MR_OTHER},
                 {MB_RETRYCANCEL, IDCANCEL, Application::MR_CANCEL},
                 {MB_ABORTRETRYIGNORE, IDABORT, Application::MR_CANCEL},
                 {MB_ABORTRETRYIGNORE, IDRETRY, Application::MR_RETRY},
                 {MB_ABORTRETRYIGNORE, IDIGNORE, Application::MR_IGNORE},
                 {MB_CANCELTRYCONTINUE, IDTRYAGAIN, Application::MR_RETRY},
                 {MB_CANCELTRYCONTINUE, IDCONTINUE, Application::MR_CONTINUE}};
    for (const auto& c : cases) {
        const std::string caption = "tmain box " + std::to_string(c.button);
        std::atomic<bool> answered{false}, shown{false};
        std::thread presser([&] {
            while (!answered) {
                if (HWND box = FindWindowA(nullptr, caption.c_str())) {
                    shown = true;
                    PostMessageA(box, WM_COMMAND, MAKEWPARAM(c.button, BN_CLICKED), 0);
                    return;
                }
                Sleep(10); // polls for the box to appear; the answer ends the wait
            }
        });
        Application::MessageResult got = Application::messageBox("text", caption.c_str(), c.style);
        answered = true;
        presser.join();
        if (!shown && got == Application::MR_OTHER && underWine())
            GTEST_SKIP() << "Wine has no display here: MessageBoxA returns at once without showing a box "
                            "to answer";
        EXPECT_EQ(c.want, got) << caption;
    }
}
