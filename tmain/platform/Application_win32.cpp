#include <tmain/platform/Application.h>

#include <shlobj.h>
#include <windows.h>

namespace tarso {
namespace platform {

std::string Application::moduleFileName(void* instance) {
    char buf[1024];
    DWORD n = GetModuleFileNameA((HMODULE)instance, buf, sizeof buf);
    return n > 0 && n < sizeof buf ? std::string(buf, n) : std::string();
}

void Application::initFolders(const std::string& name) {
    std::string suffix = "\\" + name;
    char buf[MAX_PATH];
    if (SHGetSpecialFolderPathA(NULL, buf, CSIDL_COMMON_APPDATA, FALSE))
        mCachePath = std::string(buf) + suffix;
    if (SHGetSpecialFolderPathA(NULL, buf, CSIDL_APPDATA, FALSE))
        mWorkingPath = std::string(buf) + suffix;
}

Application::MessageResult Application::messageBox(const char* text, const char* caption, unsigned type) {
    switch (MessageBoxA((HWND)mWindow, text, caption, type)) {
    case IDNO:
        return MR_NO;
    case IDCANCEL:
    case IDABORT:
        return MR_CANCEL;
    case IDRETRY:
    case IDTRYAGAIN:
        return MR_RETRY;
    case IDCONTINUE:
        return MR_CONTINUE;
    case IDIGNORE:
        return MR_IGNORE;
    default:
        return MR_OTHER;
    }
}

} // namespace platform
} // namespace tarso
