// FileOperations on a real temporary directory, with std::filesystem as the
// independent witness; what only one system has is in fileops_posix.cpp and
// fileops_win32.cpp.
#include "../support/TestSupport.h"
#include <atomic>
#include <cstring>
#include <filesystem>
#include <set>
#include <tmain/platform/FileOperations.h>
#include <tmain/platform/detail/FileSystemNative.h>

using tarso::platform::FileOperations;
namespace fs = std::filesystem;

namespace {

std::set<std::string> listing(const std::string& dir, const char* pattern) {
    std::set<std::string> out;
    FileOperations::iterateContents(dir.c_str(), pattern, &out, [](const char* name, void* user) {
        static_cast<std::set<std::string>*>(user)->insert(name);
    });
    return out;
}

TEST(FileOperationsPaths, SplittingAppendingMatchingAndNulls) {
    const char* plain = "a";
    EXPECT_TRUE(FileOperations::getExtension(plain) == plain + 1 && FileOperations::getFile(plain) == plain);
    std::string folder = "stale";
    // For the file, '/' wins over a later '\'.
    EXPECT_JOINED(".old/file|.gz|c|b\\c|c|a|a\\b||", FileOperations::getExtension("dir.old/file"),
                  FileOperations::getExtension("a/b.tar.gz"), FileOperations::getFile("a\\b/c"),
                  FileOperations::getFile("a/b\\c"), FileOperations::getFile("a\\b\\c"),
                  FileOperations::getFolder("a/b\\c", folder), FileOperations::getFolder("a\\b\\c", folder),
                  FileOperations::getFolder("c", folder));

    struct Case {
        const char* base;
        const char* part;
        const char* want;
    } cases[] = {{"a/", "/b", "a/b"}, {"", "b", "b"},       {"a", "b", "a/b"},    {"a\\", "b", "a\\b"},
                 {"a", "\\b", "a/b"}, {"a", "//b", "a//b"}, {"a", nullptr, "a/"}, {"", "/b", "b"}};
    for (const Case& c : cases) {
        std::string s = c.base, out = "junk";
        EXPECT_EQ(c.want, std::string(FileOperations::appendPath(s, c.part))) << c.base << " + " << c.part;
        EXPECT_STREQ(c.want, FileOperations::appendPath(std::string(c.base), c.part, out));
        EXPECT_EQ(c.want, out);
    }
    std::string self = "x";
    EXPECT_STREQ("x/y", FileOperations::appendPath(self, "y", self));

    const char* matches[][2] = {{"*.txt", "x.txt"},   {"*", ""},      {"", ""},
                                {"a*b*c", "abxxbxc"}, {"**?**", "z"}, {"*a?c*", "xxabacxabcc"}};
    const char* misses[][2] = {{"a?", "a"}, {"", "a"}, {"a*b*c", "abxxbxcd"}, {"*.TXT", "x.txt"}, {"?", ""}};
    for (auto& m : matches)
        EXPECT_TRUE(FileOperations::match(m[0], m[1])) << m[0] << " ~ " << m[1];
    for (auto& m : misses)
        EXPECT_FALSE(FileOperations::match(m[0], m[1])) << m[0] << " ~ " << m[1];
    // Would take ~10^12 steps with naive backtracking.
    EXPECT_FALSE(FileOperations::match("*a*a*a*a*a*a*a*a*a*a*a*a*b", std::string(60, 'a').c_str()));
    EXPECT_TRUE(FileOperations::match("*a*a*a*a*a*a*a*a*a*a*a*a*b", (std::string(60, 'a') + "b").c_str()));

    // The Win32 seam's time conversion: the epoch and 2000-01-01.
    using namespace tarso::platform::detail;
    EXPECT_JOINED("0|946684800|125911584000000000|-1|", fileTimeToUnix(116444736000000000ULL),
                  fileTimeToUnix(125911584009999999ULL), unixToFileTime(946684800),
                  fileTimeToUnix(unixToFileTime(-1)));

    // Null and empty arguments fail calmly.
    std::string s;
    EXPECT_EQ("", std::string(FileOperations::getExtension(nullptr)) + FileOperations::getFile(nullptr) +
                      FileOperations::getFolder(nullptr, s));
    EXPECT_JOINED("0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|", FileOperations::exists(nullptr),
                  FileOperations::exists(""), FileOperations::isDirectory(nullptr),
                  FileOperations::isDirectoryEmpty(nullptr), FileOperations::ensurePath(nullptr),
                  FileOperations::ensurePath(""), FileOperations::remove(nullptr, 1),
                  FileOperations::remove("", 1), FileOperations::rename(nullptr, "x"),
                  FileOperations::rename("x", nullptr), FileOperations::getSize(nullptr),
                  FileOperations::getLastModTime(nullptr), FileOperations::getCreationTime(nullptr),
                  FileOperations::touch(nullptr), FileOperations::setLastModTime(nullptr, 1),
                  FileOperations::match(nullptr, ""), FileOperations::match("", nullptr),
                  FileOperations::setTemporaryPath(nullptr));
    FileOperations::iterateContents(nullptr, "*", nullptr, [](const char*, void*) { FAIL(); });
    FileOperations::iterateContents("/", "*", nullptr, nullptr);
}

TEST(FileOperationsFiles, ExistsEnsurePathAndRemove) {
    tmaintest::TempDir tmp;
    const std::string t = tmp.path();
    tmaintest::writeFile(t + "/file", "x");
    EXPECT_JOINED(
        "1|1|0|0|1|0|0|0|", FileOperations::exists((t + "/file").c_str()), FileOperations::exists(t.c_str()),
        FileOperations::exists((t + "/missing").c_str()), FileOperations::isDirectory((t + "/file").c_str()),
        FileOperations::isDirectory(t.c_str()), FileOperations::isDirectory((t + "/missing").c_str()),
        FileOperations::isDirectoryEmpty(t.c_str()), FileOperations::isDirectoryEmpty((t + "/file").c_str()));

    EXPECT_TRUE(FileOperations::ensurePath((t + "/x/y/z.txt").c_str()));
    EXPECT_TRUE(FileOperations::isDirectoryEmpty((t + "/x/y").c_str())); // z.txt not created
    EXPECT_TRUE(FileOperations::ensurePath((t + "/p/q/").c_str()) && fs::is_directory(t + "/p/q"));
    const fs::path cwd = fs::current_path();
    fs::current_path(t);
    bool relative = FileOperations::ensurePath("r/./s/../t/u.txt");
    fs::current_path(cwd);
    EXPECT_TRUE(relative && fs::is_directory(t + "/r/t") && !fs::exists(t + "/r/s"));
    EXPECT_FALSE(FileOperations::ensurePath((t + "/file/g/h.txt").c_str())); // a file is in the way
    std::string longPath = t + "/" + std::string(FileOperations::FULL_PATH_SIZE, 'a') + "/b.txt";
    EXPECT_FALSE(FileOperations::ensurePath(longPath.c_str()));
    std::atomic<int> made{0};
    tmaintest::onThreads(8, [&](int) { made += FileOperations::ensurePath((t + "/c/d/e/f/g.txt").c_str()); });
    EXPECT_EQ(8, made);

    tmaintest::writeFile(t + "/x/y/data", "d");
    tmaintest::writeFile(t + "/x/top", "t");
    EXPECT_TRUE(!FileOperations::remove((t + "/x").c_str(), 0) && fs::exists(t + "/x/y/data"));
    EXPECT_TRUE(FileOperations::remove((t + "/x").c_str(), FileOperations::REMOVE_RECURSIVE));
    EXPECT_FALSE(fs::exists(t + "/x"));
    EXPECT_TRUE(FileOperations::remove((t + "/p/q").c_str(), 0)); // empty: no flag needed
    EXPECT_TRUE(fs::exists(t + "/p") && !fs::exists(t + "/p/q"));
    EXPECT_TRUE(FileOperations::remove((t + "/file").c_str(), 0) && !fs::exists(t + "/file"));
    EXPECT_FALSE(FileOperations::remove((t + "/file").c_str(), 1));
}

TEST(FileOperationsFiles, RenameIterateTimesAndSizes) {
    tmaintest::TempDir tmp;
    const std::string t = tmp.path();
    tmaintest::writeFile(t + "/a", "A");
    tmaintest::writeFile(t + "/b", "B");
    EXPECT_FALSE(FileOperations::rename((t + "/a").c_str(), (t + "/b").c_str())); // no overwriting
    EXPECT_EQ("AB", tmaintest::readFile(t + "/a") + tmaintest::readFile(t + "/b"));
    EXPECT_TRUE(FileOperations::rename((t + "/a").c_str(), (t + "/a.txt").c_str()));
    EXPECT_EQ("A", tmaintest::readFile(t + "/a.txt"));
    EXPECT_FALSE(FileOperations::rename((t + "/a").c_str(), (t + "/c").c_str())); // gone
    fs::create_directory(t + "/d1");
    EXPECT_TRUE(FileOperations::rename((t + "/d1").c_str(), (t + "/sub").c_str()));

    for (const char* name : {"/b.txt", "/c.log", "/.hidden", "/sub/inner.txt"})
        tmaintest::writeFile(t + name, "");
    std::set<std::string> all;
    for (const auto& e : fs::directory_iterator(t))
        all.insert(t + "/" + e.path().filename().string());
    for (const char* pattern : {"*", "*.*", (const char*)nullptr})
        EXPECT_EQ(all, listing(t, pattern)) << (pattern ? pattern : "null");
    EXPECT_EQ(all, listing(t + "/", "*"));
    EXPECT_EQ((std::set<std::string>{t + "/a.txt", t + "/b.txt"}), listing(t, "*.txt"));
    EXPECT_EQ((std::set<std::string>{t + "/c.log"}), listing(t, "?.log"));
    EXPECT_EQ((std::set<std::string>{t + "/sub/inner.txt"}), listing(t + "/sub", "*"));
    EXPECT_TRUE(listing(t + "/missing", "*").empty());

    const std::string f = tmp.file("f");
    tmaintest::writeFile(f, "hello");
    const char* p = f.c_str();
    EXPECT_EQ(5, FileOperations::getSize(p));
    EXPECT_EQ(0, FileOperations::getSize(t.c_str()) + FileOperations::getSize(tmp.file("missing").c_str()));

    EXPECT_TRUE(FileOperations::setLastModTime(p, 1000000000) &&
                FileOperations::setLastAccTime(p, 1234567890));
    EXPECT_EQ(std::make_pair(1000000000LL, 1234567890LL),
              std::make_pair(FileOperations::getLastModTime(p), FileOperations::getLastAccTime(p)));
    // Only the low 32 bits count, as a signed value.
    for (__int64 when : {(1LL << 32) + 1000, 3000000000LL})
        EXPECT_TRUE(FileOperations::setLastModTime(p, when) && FileOperations::getLastModTime(p) == (int)when)
            << when;
    EXPECT_JOINED("0|0|", FileOperations::setLastModTime(tmp.file("missing").c_str(), 5),
                  FileOperations::getLastModTime(tmp.file("missing").c_str()));

    // touch: now, as the kernel stamps a file made just before it.
    tmaintest::writeFile(tmp.file("ref"), "");
    EXPECT_TRUE(FileOperations::touch(p));
    EXPECT_GE(FileOperations::getLastModTime(p), FileOperations::getLastModTime(tmp.file("ref").c_str()));
    EXPECT_FALSE(FileOperations::touch(tmp.file("missing").c_str()) || fs::exists(tmp.file("missing")));
}

TEST(FileOperationsTemp, SetAndGetAreBoundedAndThreadSafe) {
    char buf[FileOperations::TEMP_PATH_SIZE];
    ASSERT_TRUE(FileOperations::setTemporaryPath("/first"));
    EXPECT_FALSE(FileOperations::setTemporaryPath(std::string(256, 'x').c_str()));
    ASSERT_TRUE(FileOperations::getTemporaryPath(buf, sizeof(buf)));
    EXPECT_STREQ("/first", buf);
    EXPECT_TRUE(FileOperations::getTemporaryPath(buf, 7)); // needs 7 with the terminator
    EXPECT_FALSE(FileOperations::getTemporaryPath(buf, 6) || FileOperations::getTemporaryPath(nullptr, 100));
    const std::string longest(255, 'L');
    EXPECT_TRUE(FileOperations::setTemporaryPath(longest.c_str()));
    ASSERT_TRUE(FileOperations::getTemporaryPath(buf, sizeof(buf)));
    EXPECT_EQ(longest, buf);

    // Readers never see a mix of two paths.
    const std::string a(200, 'a'), b = "/b";
    std::vector<int> torn(4, 0);
    tmaintest::onThreads(4, [&](int i) {
        char local[FileOperations::TEMP_PATH_SIZE];
        for (int n = 0; n < 2000; ++n) {
            if (i % 2 == 0)
                FileOperations::setTemporaryPath(n % 2 ? a.c_str() : b.c_str());
            else if (!FileOperations::getTemporaryPath(local, sizeof(local)) ||
                     (a != local && b != local && longest != local))
                ++torn[i];
        }
    });
    EXPECT_EQ(std::vector<int>(4, 0), torn);
}

} // namespace
