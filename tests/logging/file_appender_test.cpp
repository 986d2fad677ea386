#include "tests/support/TestSupport.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Thread.h>
#include <tmain/logging/FileAppender.h>

using logging::FileAppender;
using tmaintest::readFile;
using tmaintest::TempDir;
using tmaintest::writeFile;

/// Sets (or, for null, removes) an environment variable of this process and
/// has the C runtime read the time zone again (file_appender_posix.cpp,
/// file_appender_win32.cpp).
void setEnv(const char* name, const char* value);

namespace {

/// The message and a newline: line sizes the test controls exactly.
struct RawLayout : logging::Layout {
    std::string format(const logging::LogEvent& e) const override { return e.message + "\n"; }
};

struct Appender : FileAppender {
    using FileAppender::FileAppender;
    using FileAppender::getYYYYMMDD;
    void line(const std::string& text) { doAppend(logging::LogEvent{logging::LEVEL_INFO, "t", text, 0, ""}); }
};

std::string pad(const std::string& head, size_t size) {
    return head + std::string(size - 1 - head.size(), '.');
}

bool exists(const std::string& path) {
    return std::filesystem::exists(path);
}

TEST(FileAppender, ClampsNamesAndFailures) {
    TempDir dir;
    core::SmartPtr<Appender> a(
        new Appender(dir.file("logs/app").c_str(), FileAppender::ROLL_SIZE, 10, nullptr));
    EXPECT_JOINED("1048576|2147483648|1048576|2|5|3|", a->getMaxSize(),
                  (a->setMaxSize(0xFFFFFFFF), a->getMaxSize()), (a->setMaxSize(10), a->getMaxSize()),
                  (a->setMaxRollingFiles(0), a->getMaxRollingFiles()),
                  (a->setMaxRollingFiles(9), a->getMaxRollingFiles()),
                  (a->setMaxRollingFiles(3), a->getMaxRollingFiles()));
    EXPECT_EQ(dir.file("logs/app.log"), a->getPath());
    EXPECT_TRUE(exists(dir.file("logs/app.log")));
    // The extension is taken from the file name, not from a folder name.
    core::SmartPtr<Appender> b(new Appender(dir.file("d.x/b").c_str(), FileAppender::OVERWRITE, nullptr));
    EXPECT_EQ(dir.file("d.x/b.log"), b->getPath());

    writeFile(dir.file("plain"), "x");
    for (const char* bad : {"plain/app.log", "plain/sub/app"})
        EXPECT_MESSAGE(core::Exception, "(FileAppender::FileAppender) Unable to open log file for output",
                       Appender(dir.file(bad).c_str(), FileAppender::ROLL_DAILY, nullptr));
    EXPECT_MESSAGE(core::Exception, "(FileAppender::FileAppender) Unable to open log file for output",
                   Appender(nullptr, FileAppender::ROLL_SIZE, nullptr));
}

TEST(FileAppender, SizeRollsKeepEveryLineWithExactNamesAndSizes) {
    TempDir dir;
    const std::string base = dir.file("app");
    // An existing file is appended to, and its size counts towards the limit.
    writeFile(base + ".txt", std::string(1048000, 'o'));
    core::SmartPtr<Appender> a(
        new Appender((base + ".txt").c_str(), FileAppender::ROLL_SIZE, 0, new RawLayout));
    a->setMaxRollingFiles(3);
    const std::string roll = "Roll (size): 1049000 > 1048576\n";
    a->line(pad("L0", 1000)); // 1049000 > 1048576: rolls before writing
    EXPECT_EQ(std::string(1048000, 'o') + roll, readFile(base + "-1.txt"));
    // The line that opened a file is not counted: the next roll comes 1049 lines later.
    for (int i = 1; i <= 2 * 1049; ++i)
        a->line(pad("L" + std::to_string(i), 1000));
    std::string old1 = readFile(base + "-1.txt"), old2 = readFile(base + "-2.txt");
    EXPECT_JOINED("0|1049031|1049031|", exists(base + "-3.txt"), old2.size(), old1.size());
    EXPECT_EQ(pad("L0", 1000) + "\n" + pad("L1", 1000), old2.substr(0, 1999));
    EXPECT_EQ(pad("L1048", 1000) + "\n" + roll, old2.substr(1048 * 1000));
    EXPECT_EQ(pad("L1049", 1000) + "\n", old1.substr(0, 1000));
    EXPECT_EQ(pad("L2097", 1000) + "\n" + roll, old1.substr(1048 * 1000));
    EXPECT_EQ(pad("L2098", 1000) + "\n", readFile(base + ".txt"));

    // Overwrite: the old file is replaced and never rolled; copies write through the same file.
    core::SmartPtr<Appender> o(
        new Appender((base + ".txt").c_str(), FileAppender::OVERWRITE, 0, new RawLayout));
    for (int i = 0; i < 1100; ++i)
        o->line(pad("O", 1000));
    Appender(*o).line("copy");
    std::string now = readFile(base + ".txt");
    EXPECT_JOINED("1100005|O|copy\n|1|", now.size(), now.substr(0, 1), now.substr(1100000),
                  old1 == readFile(base + "-1.txt"));
}

TEST(FileAppender, DailyRollAcrossMidnightByTimeZone) {
    const char* saved = getenv("TZ");
    std::string savedValue = saved ? saved : "";
    // Two zones 24 hours apart: their dates always differ by exactly one day.
    // Three-letter names, as the Windows C runtime reads them.
    auto stamp = [](time_t t) {
        struct tm g = *std::gmtime(&t);
        return std::to_string((g.tm_year + 1900) * 10000 + (g.tm_mon + 1) * 100 + g.tm_mday);
    };
    const std::string w = stamp(time(nullptr) - 12 * 3600), e = stamp(time(nullptr) + 12 * 3600);
    setEnv("TZ", "WWW+12");
    TempDir dir;
    core::SmartPtr<Appender> a(
        new Appender(dir.file("d.log").c_str(), FileAppender::ROLL_SIZE, new RawLayout));
    a->setMode(FileAppender::ROLL_DAILY); // the day of a file made now is today, birth time or not
    a->line("west");
    setEnv("TZ", "EEE-12");
    a->line("east");
    a->line("east again");
    setEnv("TZ", "WWW+12");
    a->line("west again");
    EXPECT_JOINED("20260102|19991230|0|", Appender::getYYYYMMDD(1767355200), Appender::getYYYYMMDD(946598400),
                  Appender::getYYYYMMDD(-(1LL << 60)));
    setEnv("TZ", saved ? savedValue.c_str() : nullptr);
    EXPECT_EQ("west\nRoll (daily): " + e + " != " + w + "\n", readFile(dir.file("d-2.log")));
    EXPECT_EQ("east\neast again\nRoll (daily): " + w + " != " + e + "\n", readFile(dir.file("d-1.log")));
    EXPECT_EQ("west again\n", readFile(dir.file("d.log")));
}

TEST(FileAppender, ThreadsThroughLoggerLoseNoLineAcrossRolls) {
    TempDir dir;
    logging::Logger logger("files");
    logger.addAppender(
        new FileAppender(dir.file("mt.log").c_str(), FileAppender::ROLL_SIZE, 0, new RawLayout));
    tmaintest::onThreads(8, [&](int t) {
        for (int i = 0; i < 2000; ++i)
            logger.info("%d %d %s", t, i, std::string(200, 'x').c_str());
    });
    logger.removeAllAppenders();
    std::map<int, int> next;
    int rolls = 0;
    for (const char* name : {"mt-4.log", "mt-3.log", "mt-2.log", "mt-1.log", "mt.log"}) {
        std::ifstream in(dir.file(name));
        std::string line;
        while (std::getline(in, line)) {
            if (line.compare(0, 13, "Roll (size): ") == 0) {
                ++rolls;
                EXPECT_EQ(EOF, in.peek()) << "roll line not last in " << name;
                continue;
            }
            int t = -1, i = -1;
            ASSERT_EQ(2, sscanf(line.c_str(), "%d %d", &t, &i)) << line;
            ASSERT_EQ(next[t]++, i) << "thread " << t;
        }
    }
    EXPECT_EQ(3, rolls);
    EXPECT_EQ((std::map<int, int>{
                  {0, 2000}, {1, 2000}, {2, 2000}, {3, 2000}, {4, 2000}, {5, 2000}, {6, 2000}, {7, 2000}}),
              next);
}

/// Logs again from inside its hook, once: the nested message must not disturb the outer one.
struct Reentrant : logging::Appender {
    logging::Logger& logger;
    std::string seen;
    explicit Reentrant(logging::Logger& l) : Appender(nullptr), logger(l) {}
    void append(const logging::LogEvent& e, const std::string& text) override {
        seen += e.message.substr(0, 9) + "|" + text.substr(20) + "|";
        if (e.message == "outer")
            logger.warn("inner %d", 2);
        seen += e.message.substr(0, 9) + ".";
    }
};

TEST(Logger, MessagesAsExceptionsFormatThemAlsoWhenNested) {
    logging::Logger logger("n");
    Reentrant* r = new Reentrant(logger);
    logger.addAppender(r);
    const std::string big(3000, 'b'), name = core::Thread::getCurrentThreadName();
    logger.info("%s", "outer");
    logger.info("x%cy %s", 0, "z");
    const char* none = getenv("TMAIN_UNSET_VARIABLE_FOR_TEST");
    logger.info("%s%%%s", "100", none);
    // Destroyed after the thread's logging buffers. mingw's thread_local
    // objects may be destroyed after join() has returned, and after their
    // own storage is gone: the destructor uses only plain statics, and an
    // event says when it is done.
    static logging::Logger* sLogger;
    static core::Event* sDone;
    struct LogsAtExit {
        ~LogsAtExit() {
            sLogger->info("bye");
            sDone->set();
        }
    };
    core::Event byeLogged(true, false);
    sLogger = &logger;
    sDone = &byeLogged;
    std::thread([&] {
        thread_local LogsAtExit last;
        (void)last;
        logger.info("hi");
    }).join();
    ASSERT_EQ(core::Event::WAIT_SIGNALED, byeLogged.wait());
    // The main thread of a Windows process has no name: then the line has none.
    const std::string tag = name.empty() ? "" : "[" + name + "] ";
    EXPECT_EQ("outer|INFO  " + tag + "outer\n|inner 2|WARN  " + tag + "inner 2\n|inner 2.outer.x|INFO  " +
                  tag + "x\n|x.100%(null|INFO  " + tag + "100%(null)\n|100%(null.hi|INFO  " + tag +
                  "hi\n|hi.bye|INFO  " + tag + "bye\n|bye.",
              r->seen);
    r->seen.clear();
    logger.info("%s", big.c_str()); // cut where core::formatMessage cuts
    EXPECT_NE(std::string::npos, r->seen.find(" " + core::formatMessagef("%s", big.c_str()) + "\n|"));
    EXPECT_EQ(1025u, core::formatMessagef("%s", big.c_str()).size());
    core::Thread::setCurrentThreadName("renamed"); // a later name shows in later lines
    logger.info("r");
    core::Thread::setCurrentThreadName(name.c_str());
    EXPECT_NE(std::string::npos, r->seen.find("INFO  [renamed] r\n"));
}

} // namespace
