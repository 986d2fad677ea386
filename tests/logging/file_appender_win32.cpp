// The day of a log file comes from its creation time, which Windows keeps.
#include "tests/support/TestSupport.h"
#include <cstdlib>
#include <ctime>
#include <tmain/logging/FileAppender.h>
#include <tmain/platform/FileOperations.h>
#include <windows.h>

void setEnv(const char* name, const char* value) {
    _putenv_s(name, value ? value : ""); // an empty value removes the variable
    _tzset();
}

namespace {

struct RawLayout : logging::Layout {
    std::string format(const logging::LogEvent& e) const override { return e.message + "\n"; }
};

TEST(FileAppenderWin32, DayOfAFileIsItsCreationDay) {
    tmaintest::TempDir dir;
    const std::string path = dir.file("old.log");
    tmaintest::writeFile(path, "kept\n");
    // Written today, created on 2001-02-03 (noon UTC: the same day in every zone).
    ASSERT_TRUE(tarso::platform::FileOperations::setCreationTime(path.c_str(), 981201600));
    if (tarso::platform::FileOperations::getCreationTime(path.c_str()) != 981201600) {
        HMODULE ntdll = GetModuleHandleA("ntdll.dll");
        if (ntdll && GetProcAddress(ntdll, "wine_get_version"))
            GTEST_SKIP() << "Wine keeps no creation time of its own: SetFileTime accepts one, and the "
                            "last-write time is reported in its place";
        FAIL() << "the creation time did not stay";
    }
    core::SmartPtr<logging::FileAppender> a(
        new logging::FileAppender(path.c_str(), logging::FileAppender::ROLL_DAILY, new RawLayout));
    logging::Logger logger("day");
    logger.addAppender(a.get());
    logger.info("today");
    logger.removeAllAppenders();
    time_t now = time(nullptr);
    struct tm local;
    ASSERT_EQ(0, localtime_s(&local, &now));
    const unsigned today = (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
    EXPECT_EQ("kept\nRoll (daily): " + std::to_string(today) + " != 20010203\n",
              tmaintest::readFile(dir.file("old-1.log")));
    EXPECT_EQ("today\n", tmaintest::readFile(path));
    // The new file is created now: its day is today's.
    EXPECT_GE(tarso::platform::FileOperations::getCreationTime(path.c_str()), (__int64)now - 86400);
}

} // namespace
