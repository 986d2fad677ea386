#include "PackagePlatform.h"

std::string consumerCMakeArguments() {
    // The compiler is the cross compiler this build used.
    return "-DCMAKE_SYSTEM_NAME=Windows";
}

std::string consumerCommand(const std::string& prefix, const std::string& program) {
    // Run by the same wine (its WINEPREFIX is in the environment); the DLL
    // and the compiler's runtime DLLs are installed into bin/. The C
    // runtime writes "\r\n" to a pipe.
    return "WINEDEBUG=-all WINEPATH='" + prefix + "/bin' wine '" + program + ".exe' | tr -d '\\r'";
}
