#pragma once
#include <string>
#include <tmain/Export.h>

namespace tarso {
namespace platform {

/// The process-wide paths (executable, working and cache folders) and the
/// owner window of message boxes. init() fixes them once at start-up.
class TMAIN_API Application {
public:
    /// What the application tells init().
    struct ApplicationData {
        std::string mName;
        /// The module instance handle (HINSTANCE); null: the executable.
        void* mInstance = nullptr;
        /// The main window handle (HWND), owner of message boxes.
        void* mWindow = nullptr;
    };

    /// The answer of messageBox().
    enum MessageResult {
        MR_OTHER = 0,
        MR_NO = 1,
        MR_CANCEL = 2, ///< cancel or abort
        MR_RETRY = 3,  ///< retry or try again
        MR_CONTINUE = 4,
        MR_IGNORE = 5
    };

    /// Windows: the module's file name, the shared and the user's
    /// application-data folders plus "\<name>". Linux: /proc/self/exe,
    /// $XDG_DATA_HOME/<name> and $XDG_CACHE_HOME/<name> (the XDG defaults
    /// under $HOME when unset or relative). The external paths follow the
    /// working and cache paths. A folder that cannot be found leaves its
    /// path unchanged.
    static void init(const ApplicationData* data);

    static const char* getExecutablePath() { return mExecutablePath.c_str(); }
    static const char* getWorkingPath() { return mWorkingPath.c_str(); }
    static const char* getCachePath() { return mCachePath.c_str(); }
    static const char* getExternalWorkingPath() { return mExternalWorkingPath.c_str(); }
    static const char* getExternalCachePath() { return mExternalCachePath.c_str(); }

    /// A system message box owned by the main window; `type` is the box
    /// style (MB_* bits). Linux has no system box: the text goes to the
    /// root logger and standard error, and the answer is MR_OTHER.
    static MessageResult messageBox(const char* text, const char* caption, unsigned type);

    static std::string mExecutablePath;
    static std::string mWorkingPath;
    static std::string mCachePath;
    static std::string mExternalWorkingPath;
    static std::string mExternalCachePath;

private:
    static void* mWindow;
    /// The module file name of the instance (null: the executable), or "".
    static std::string moduleFileName(void* instance);
    /// Sets the working and cache paths for the application name.
    static void initFolders(const std::string& name);
};

} // namespace platform
} // namespace tarso
