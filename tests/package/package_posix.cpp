#include "PackagePlatform.h"

std::string consumerCMakeArguments(const std::string&) {
    return "";
}

std::string consumerCommand(const std::string& prefix, const std::string& program) {
    const std::string libdir =
        tmaintest::outputOf("dirname $(find '" + prefix + "' -name 'libtmain.so*' | head -1) | tr -d '\\n'");
    return "LD_LIBRARY_PATH='" + libdir + "' '" + program + "'";
}
