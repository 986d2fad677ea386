#pragma once
// What differs between the platforms when a consumer of the installed package
// is built and run (package_posix.cpp, package_win32.cpp).
#include "../support/TestSupport.h"
#include <string>

/// Extra cmake arguments for configuring the consumer project against the
/// package installed in `prefix`.
std::string consumerCMakeArguments(const std::string& prefix);
/// The shell command that runs the consumer program `program` (its name
/// without a suffix) against the library installed in `prefix`; its output
/// has plain "\n" line ends.
std::string consumerCommand(const std::string& prefix, const std::string& program);
