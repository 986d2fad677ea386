#pragma once
/// The C runtime's local time behind the log-file appender: FileAppender.cpp
/// holds the portable logic, FileAppender_posix.cpp and FileAppender_win32.cpp
/// implement this with their runtime's calls.

#include <ctime>
#include <tmain/platform/Platform.h>

namespace logging {
namespace detail {

/// Local broken-down time of t (seconds since 1970). The time-zone settings
/// are read again on every call, so a changed TZ or a DST switch counts at
/// once. POSIX: tzset and localtime_r. Win32: _tzset and _localtime64_s.
bool localTime(__int64 t, struct tm& out);

} // namespace detail
} // namespace logging
