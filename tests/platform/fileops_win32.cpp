// FileOperations with what only Windows has: removal through the shell,
// creation times, names that ignore case.
#include "../support/TestSupport.h"
#include <filesystem>
#include <tmain/platform/FileOperations.h>
#include <windows.h>

using tarso::platform::FileOperations;
namespace fs = std::filesystem;

TEST(FileOperationsWin32, ShellRemovalCreationTimesAndCaseBlindNames) {
    tmaintest::TempDir tmp;
    const std::string t = tmp.path();
    fs::create_directories(t + "/tree/a/b");
    for (const char* name : {"/tree/a/b/c.txt", "/tree/ro", "/keep", "/Mixed.TXT", "/long.txtx"})
        tmaintest::writeFile(t + name, name);
    SetFileAttributesA((t + "/tree/ro").c_str(), FILE_ATTRIBUTE_READONLY);
    // A relative path with backslashes reaches the shell as one full path.
    const fs::path cwd = fs::current_path();
    fs::current_path(t);
    bool removed = FileOperations::remove("tree\\", FileOperations::REMOVE_RECURSIVE);
    fs::current_path(cwd);
    EXPECT_TRUE(removed && !fs::exists(t + "/tree"));
    // Wildcards (a selection for the shell) and drive roots are refused.
    char root[MAX_PATH] = "";
    GetWindowsDirectoryA(root, MAX_PATH);
    root[3] = 0;
    EXPECT_FALSE(FileOperations::remove((t + "/k*").c_str(), 1) || FileOperations::remove(root, 1));
    EXPECT_TRUE(fs::exists(t + "/keep") && FileOperations::isDirectory(root));

    std::string found;
    FileOperations::iterateContents(t.c_str(), "*.txt", &found, [](const char* name, void* out) {
        *static_cast<std::string*>(out) += FileOperations::getFile(name); // not long.txtx by its 8.3 alias
    });
    EXPECT_EQ("Mixed.TXT", found);

    const std::string f = t + "/Mixed.TXT";
    const char* p = f.c_str();
    __int64 acc = 1200000000, cre = 981201600, wr = 1300000000;
    EXPECT_TRUE(FileOperations::setTime(p, &acc, &cre, &wr) && FileOperations::getLastAccTime(p) == acc &&
                FileOperations::getLastModTime(p) == wr);
    if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version"))
        GTEST_SKIP() << "Wine keeps no creation time of its own: SetFileTime accepts one, and the last-write "
                        "time is reported in its place";
    EXPECT_EQ(981201600, FileOperations::getCreationTime(p));
}
