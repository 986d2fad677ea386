// FileOperations with what only Windows has: removal through the shell,
// settable creation times, names that ignore case, drive paths, TMP; the C
// runtime's _stat64 as the witness of file times.
#include "../support/TestSupport.h"
#include <cstring>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <tmain/platform/FileOperations.h>
#include <windows.h>

using tarso::platform::FileOperations;
namespace fs = std::filesystem;

namespace {

bool underWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version");
}

std::set<std::string> names(const std::string& dir, const char* pattern) {
    std::set<std::string> out;
    FileOperations::iterateContents(dir.c_str(), pattern, &out, [](const char* name, void* user) {
        static_cast<std::set<std::string>*>(user)->insert(FileOperations::getFile(name));
    });
    return out;
}

TEST(FileOperationsWin32, ShellRemovesTreesAndRefusesWildcardsAndDrives) {
    tmaintest::TempDir tmp;
    const std::string t = tmp.path();
    for (const char* name :
         {"/tree/a/b/c.txt", "/tree/a/d.bin", "/tree/top", "/tree/ro", "/keep1", "/keep2"}) {
        fs::create_directories(fs::path(t + name).parent_path());
        tmaintest::writeFile(t + name, name);
    }
    fs::create_directories(t + "/tree/empty/deeper");
    SetFileAttributesA((t + "/tree/ro").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(FileOperations::remove((t + "/tree").c_str(), 0));
    // Backslashes, a trailing separator and a relative path all reach the shell as one full path.
    const fs::path cwd = fs::current_path();
    fs::current_path(t);
    bool removed = FileOperations::remove("tree\\", FileOperations::REMOVE_RECURSIVE);
    fs::current_path(cwd);
    EXPECT_TRUE(removed && !fs::exists(t + "/tree"));
    // A wildcard would be a selection of files for the shell: refused, nothing goes.
    EXPECT_FALSE(FileOperations::remove((t + "/k*").c_str(), 1) ||
                 FileOperations::remove((t + "/?eep1").c_str(), 1));
    EXPECT_TRUE(fs::exists(t + "/keep1") && fs::exists(t + "/keep2"));
    char drive[MAX_PATH];
    ASSERT_TRUE(GetWindowsDirectoryA(drive, MAX_PATH) >= 3);
    drive[3] = 0; // "C:\"
    EXPECT_FALSE(FileOperations::remove(drive, 1) ||
                 FileOperations::remove((std::string(drive) + ".").c_str(), 1));
    EXPECT_TRUE(FileOperations::isDirectory(drive));
}

TEST(FileOperationsWin32, TimesNamesAndPaths) {
    tmaintest::TempDir tmp;
    const std::string f = tmp.file("Mixed.TXT");
    tmaintest::writeFile(f, "hello");
    const char* p = f.c_str();
    EXPECT_TRUE(FileOperations::setLastModTime(p, 1000000000) &&
                FileOperations::setLastAccTime(p, 1234567890));
    struct _stat64 st;
    ASSERT_EQ(0, _stat64(p, &st));
    EXPECT_EQ(std::make_pair(1000000000LL, 1234567890LL),
              std::make_pair((long long)st.st_mtime, (long long)st.st_atime));
    // Times can be set on a file another handle is writing, as the log appender does.
    FILE* held = fopen(p, "ab");
    ASSERT_TRUE(held);
    EXPECT_TRUE(FileOperations::setLastAccTime(p, 1111111111));
    fclose(held);

    // Names ignore case; a long name is not found through its short 8.3 alias.
    tmaintest::writeFile(tmp.file("long.txtx"), "");
    EXPECT_EQ((std::set<std::string>{"Mixed.TXT"}), names(tmp.path(), "*.txt"));
    EXPECT_EQ((std::set<std::string>{"Mixed.TXT"}), names(tmp.path(), "mIXED.*"));
    EXPECT_EQ((std::set<std::string>{"Mixed.TXT", "long.txtx"}), names(tmp.path() + "\\", "*.*"));
    EXPECT_TRUE(FileOperations::exists(tmp.file("MIXED.txt").c_str()));

    // Drive paths with backslashes.
    std::string deep = tmp.path() + "\\w\\x\\y.txt";
    EXPECT_TRUE(FileOperations::ensurePath(deep.c_str()) && fs::is_directory(tmp.path() + "/w/x") &&
                !fs::exists(deep));
    EXPECT_STREQ("y.txt", FileOperations::getFile(deep.c_str()));

    // Creation times are real here: set, and read back.
    __int64 acc = 1200000000, cre = 981201600, wr = 1300000000;
    EXPECT_TRUE(FileOperations::setTime(p, &acc, &cre, &wr));
    EXPECT_EQ(std::make_pair(acc, wr),
              std::make_pair(FileOperations::getLastAccTime(p), FileOperations::getLastModTime(p)));
    if (underWine())
        GTEST_SKIP() << "Wine keeps no creation time of its own: SetFileTime accepts one, and the last-write "
                        "time is reported in its place";
    EXPECT_EQ(981201600, FileOperations::getCreationTime(p));
    EXPECT_TRUE(FileOperations::setCreationTime(p, (1LL << 32) + 5) &&
                FileOperations::getCreationTime(p) == 5);
}

// In a fresh process, so that no earlier test has set the path.
TEST(FileOperationsTemp, DefaultComesFromTMPAndFailureIsLogged) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    tmaintest::TempDir tmp;
    const std::string dir = tmp.path() + "\\";
    EXPECT_EXIT(
        {
            tmaintest::ScopedLogCapture log;
            char buf[FileOperations::TEMP_PATH_SIZE];
            auto check = [](bool ok, int code) {
                if (!ok)
                    std::_Exit(code);
            };
            // Fits MAX_PATH, not the 256 bytes kept.
            SetEnvironmentVariableA("TMP", ("C:\\" + std::string(254, 'd')).c_str());
            check(!FileOperations::getTemporaryPath(buf, sizeof(buf)), 1);
            check(log->messages(logging::LEVEL_WARN) ==
                      std::vector<std::string>{"Unable to initialize temporary file system: r=259"},
                  2);
            SetEnvironmentVariableA("TMP", dir.c_str());
            check(FileOperations::getTemporaryPath(buf, sizeof(buf)) && dir == buf, 3);
            SetEnvironmentVariableA("TMP", "C:\\elsewhere"); // taken once, then kept
            check(FileOperations::getTemporaryPath(buf, sizeof(buf)) && dir == buf, 4);
            std::_Exit(log->messages(logging::LEVEL_WARN).size() == 1 ? 0 : 5);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
