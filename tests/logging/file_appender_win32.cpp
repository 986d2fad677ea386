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

TEST(FileAppenderWin32, DayOfAFileIsItsCreationDay) {
    tmaintest::TempDir dir;
    const std::string path = dir.file("old.log");
    tmaintest::writeFile(path, "kept\n");
    // Written today, created on 2001-02-03 (noon UTC: that day in every zone).
    ASSERT_TRUE(tarso::platform::FileOperations::setCreationTime(path.c_str(), 981201600));
    if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version"))
        GTEST_SKIP() << "Wine keeps no creation time of its own: SetFileTime accepts one, and the last-write "
                        "time is reported in its place";
    struct Appender : logging::FileAppender {
        using FileAppender::FileAppender;
        using FileAppender::getYYYYMMDD;
    };
    logging::Logger logger("day");
    logger.addAppender(new Appender(path.c_str(), logging::FileAppender::ROLL_DAILY, nullptr));
    logger.info("today");
    logger.removeAllAppenders();
    EXPECT_EQ("kept\nRoll (daily): " + std::to_string(Appender::getYYYYMMDD(time(nullptr))) +
                  " != 20010203\n",
              tmaintest::readFile(dir.file("old-1.log")));
}
