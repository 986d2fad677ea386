#include <tmain/platform/Application.h>

namespace tarso {
namespace platform {

std::string Application::mExecutablePath;
std::string Application::mWorkingPath;
std::string Application::mCachePath;
std::string Application::mExternalWorkingPath;
std::string Application::mExternalCachePath;
void* Application::mWindow = nullptr;

void Application::init(const ApplicationData* data) {
    if (!data)
        return;
    mWindow = data->mWindow;
    std::string exe = moduleFileName(data->mInstance);
    if (!exe.empty())
        mExecutablePath = exe;
    initFolders(data->mName);
    mExternalWorkingPath = mWorkingPath;
    mExternalCachePath = mCachePath;
}

} // namespace platform
} // namespace tarso
