#include "PackagePlatform.h"

std::string consumerCMakeArguments(const std::string& prefix) {
    // The toolchain of this build (its architecture is this program's); the
    // package's prefix joins the places it may find packages in.
    const char* arch = sizeof(void*) == 8 ? "x86_64" : "i686";
    return std::string("-DCMAKE_TOOLCHAIN_FILE='") + TMAIN_SOURCE_DIR + "/cmake/mingw-" + arch +
           ".cmake' -DCMAKE_FIND_ROOT_PATH='" + prefix + "'";
}

std::string consumerCommand(const std::string& prefix, const std::string& program) {
    // Run by the same wine (its WINEPREFIX is in the environment); the DLL
    // and the compiler's runtime DLLs are installed into bin/. The C
    // runtime writes "\r\n" to a pipe.
    return "WINEDEBUG=-all WINEPATH='" + prefix + "/bin' wine '" + program + ".exe' | tr -d '\\r'";
}
