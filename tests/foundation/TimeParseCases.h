#pragma once
// Inputs for tstrptime, shared by the portable test (expected fields) and the
// POSIX one (the same answers as the C library's strptime).
#include <ctime>
#include <string>
#include <tmain/foundation/TimeParse.h>

namespace tmaintest {

struct TimeCase {
    const char* text;
    const char* format;
    const char* expected; // "Y-m-d H:M:S wday yday|rest", or "fail"
};

const TimeCase TIME_CASES[] = {
    {"Sun, 06 Nov 1994 08:49:37 GMT", "%a, %d %b %Y %H:%M:%S %Z", "1994-11-6 8:49:37 0 309|"},
    {"Sunday, 06-Nov-94 08:49:37 GMT", "%A, %d-%b-%y %H:%M:%S GMT", "1994-11-6 8:49:37 0 309|"},
    {"Sun Nov  6 08:49:37 1994", "%c", "1994-11-6 8:49:37 0 309|"},
    {"wednesday SEPTEMBER 3 2031 tail", "%A %B %d %Y", "2031-9-3 0:0:0 3 245| tail"},
    {"12/31/68 11:59:60 PM", "%D %r", "2068-12-31 23:59:60 1 365|"},
    {"12:05:00 am", "%I:%M:%S %p", "1900-1-1 0:5:0 -1 -1|"},
    {"2024-02-29T23:00", "%FT%R", "2024-2-29 23:0:0 4 59|"},
    {"19 72 366", "%C %y %j", "1972-12-31 0:0:0 0 365|"},
    {"  7\t8", "%e%n%m", "1900-8-7 0:0:0 2 218|"},
    {"100%", "%Y%%", "100-1-1 0:0:0 5 0|"},
    {"10:61", "%H:%M", "1900-1-1 10:6:0 -1 -1|1"},
    {"13:00", "%I:%M", "fail"},
    {"32 Jan 2000", "%d %b %Y", "fail"},
    {"Foo 1 2000", "%b %d %Y", "fail"},
    {"2000", "%Q", "fail"},
};

/// Runs one case from a tm of known fields and shows the result as `expected` does.
template <class Parse> std::string parseTime(const TimeCase& c, Parse parse) {
    struct tm t = {};
    t.tm_mday = 1;
    t.tm_wday = t.tm_yday = -1;
    const char* rest = parse(c.text, c.format, &t);
    if (!rest)
        return "fail";
    return std::to_string(t.tm_year + 1900) + "-" + std::to_string(t.tm_mon + 1) + "-" +
           std::to_string(t.tm_mday) + " " + std::to_string(t.tm_hour) + ":" + std::to_string(t.tm_min) +
           ":" + std::to_string(t.tm_sec) + " " + std::to_string(t.tm_wday) + " " +
           std::to_string(t.tm_yday) + "|" + rest;
}

} // namespace tmaintest
