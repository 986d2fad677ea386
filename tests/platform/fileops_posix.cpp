// FileOperations with what only POSIX systems have: FIFOs, symbolic links,
// moves across file systems, sparse files, and no settable birth time; stat(2)
// and the coreutils `stat`/`truncate` as witnesses.
#include "../support/TestSupport.h"
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <tmain/platform/FileOperations.h>
#include <unistd.h>

using tarso::platform::FileOperations;
namespace fs = std::filesystem;

namespace {

__int64 statMTime(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? (__int64)st.st_mtime : -99;
}

TEST(FileOperationsPosix, FifosLinksAndMovesAcrossFileSystems) {
    tmaintest::TempDir tmp;
    const std::string t = tmp.path();
    tmaintest::writeFile(t + "/file", "x");
    ASSERT_EQ(0, mkfifo((t + "/fifo").c_str(), 0600));
    fs::create_symlink(t + "/file", t + "/link");
    fs::create_symlink(t + "/nowhere", t + "/dangling");
    EXPECT_JOINED("1|0|0|0|", FileOperations::exists((t + "/link").c_str()),
                  FileOperations::exists((t + "/dangling").c_str()),
                  FileOperations::exists((t + "/fifo").c_str()),
                  FileOperations::getSize((t + "/fifo").c_str())); // the FIFO does not block

    // A tree with a link leading out of it: the link goes, its target stays.
    fs::create_directories(t + "/x/y");
    tmaintest::writeFile(t + "/x/y/data", "d");
    fs::create_directory(t + "/outside");
    tmaintest::writeFile(t + "/outside/keep", "k");
    fs::create_directory_symlink(t + "/outside", t + "/x/y/out");
    fs::create_directory_symlink(t + "/outside", t + "/outlink");
    EXPECT_TRUE(FileOperations::remove((t + "/x").c_str(), FileOperations::REMOVE_RECURSIVE) &&
                FileOperations::remove((t + "/outlink").c_str(), FileOperations::REMOVE_RECURSIVE));
    EXPECT_TRUE(!fs::exists(t + "/x") && !fs::is_symlink(t + "/outlink") &&
                tmaintest::readFile(t + "/outside/keep") == "k");
    EXPECT_TRUE(FileOperations::remove((t + "/dangling").c_str(), 0) && !fs::is_symlink(t + "/dangling"));

    // Across file systems a file is copied with its times, then the source goes.
    struct stat here, shm;
    if (::stat(t.c_str(), &here) == 0 && ::stat("/dev/shm", &shm) == 0 && here.st_dev != shm.st_dev) {
        std::string far = "/dev/shm/tmain-fileops-" + std::to_string(getpid());
        std::string payload = tmaintest::randomBytes(200000, 7);
        tmaintest::writeFile(t + "/big", payload);
        ASSERT_TRUE(FileOperations::setLastModTime((t + "/big").c_str(), 1000000000));
        EXPECT_TRUE(FileOperations::rename((t + "/big").c_str(), far.c_str()) && !fs::exists(t + "/big"));
        EXPECT_EQ(payload, tmaintest::readFile(far));
        EXPECT_EQ(1000000000, statMTime(far));
        EXPECT_FALSE(FileOperations::rename((t + "/outside").c_str(), (far + "-dir").c_str()));
        ::unlink(far.c_str());
    }
}

TEST(FileOperationsPosix, TimesCaseAndSizesAgainstTheSystem) {
    tmaintest::TempDir tmp;
    const std::string f = tmp.file("f");
    tmaintest::writeFile(f, "hello");
    const char* p = f.c_str();
    EXPECT_TRUE(FileOperations::setLastModTime(p, 1000000000));
    EXPECT_EQ(1000000000, statMTime(f));
    // A creation time cannot be set here; the other times still are, and stay.
    __int64 acc = 111111111, cre = 222222222, wr = 333333333;
    EXPECT_FALSE(FileOperations::setTime(p, &acc, &cre, &wr) || FileOperations::setCreationTime(p, 5));
    EXPECT_EQ(std::make_pair(acc, wr),
              std::make_pair(FileOperations::getLastAccTime(p), FileOperations::getLastModTime(p)));
    // Names are matched with their case, as the file system keeps them apart.
    bool found = false;
    FileOperations::iterateContents(tmp.path().c_str(), "F", &found,
                                    [](const char*, void* user) { *static_cast<bool*>(user) = true; });
    EXPECT_FALSE(found);

    TMAIN_REQUIRE_TOOL("stat");
    const std::string birth = tmaintest::outputOf("stat -c %W '" + f + "'");
    EXPECT_EQ(std::atoll(birth.c_str()), FileOperations::getCreationTime(p)); // 0 when not recorded
    TMAIN_REQUIRE_TOOL("truncate");
    tmaintest::outputOf("truncate -s 5G '" + tmp.file("sparse") + "'");
    EXPECT_EQ(5368709120LL, FileOperations::getSize(tmp.file("sparse").c_str()));
}

// In a fresh process, so that no earlier test has set the path.
TEST(FileOperationsTemp, DefaultComesFromTheSystemAndFailureIsLogged) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            tmaintest::ScopedLogCapture log;
            char buf[FileOperations::TEMP_PATH_SIZE];
            auto check = [](bool ok, int code) {
                if (!ok)
                    std::_Exit(code);
            };
            setenv("TMPDIR", std::string(300, 'd').c_str(), 1);
            check(!FileOperations::getTemporaryPath(buf, sizeof(buf)), 1);
            check(log->messages(logging::LEVEL_WARN) ==
                      std::vector<std::string>{"Unable to initialize temporary file system: r=302"},
                  2);
            setenv("TMPDIR", "/var/spool", 1);
            check(FileOperations::getTemporaryPath(buf, sizeof(buf)) && !std::strcmp(buf, "/var/spool/"), 3);
            setenv("TMPDIR", "/elsewhere", 1); // taken once, then kept
            check(FileOperations::getTemporaryPath(buf, sizeof(buf)) && !std::strcmp(buf, "/var/spool/"), 4);
            std::_Exit(log->messages(logging::LEVEL_WARN).size() == 1 ? 0 : 5);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
