// The installed package: `cmake --install` into a temporary prefix, then a
// consumer project built against it with find_package(tmain) and with
// pkg-config, and every public header reachable from tmain/tmain.h.
#include "../support/TestSupport.h"
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

namespace {

const char* kConsumer = R"cpp(#include <tmain/tmain.h>
#include <cstdio>
int main() {
    tarso::vfs::CacheMap map;
    map.addEntry(0, 10);
    map.addEntry(10, 5);
    core::SmartPtr<tarso::core::NamedObject> n(new tarso::core::NamedObject("pkg"));
    CSHA1 sha;
    sha.Update((const unsigned char*)"abc", 3);
    sha.Final();
    std::string hex;
    sha.ReportHash(hex);
    std::printf("%u %s %s\n", map.getCachedSize(), n->getName(), hex.c_str());
    return 0;
}
)cpp";

std::string quote(const std::string& s) {
    return "'" + s + "'";
}

TEST(Package, InstallsAndBuildsAConsumer) {
    TMAIN_REQUIRE_TOOL("cmake");
    tmaintest::TempDir dir;
    std::string prefix = dir.file("prefix"), out;
    ASSERT_EQ(0, tmaintest::run("cmake --install " + quote(TMAIN_BINARY_DIR) + " --prefix " + quote(prefix) +
                                    " 2>&1",
                                &out))
        << out;

    // Every installed public header is included by the umbrella header.
    std::string umbrella = tmaintest::readFile(prefix + "/include/tmain/tmain.h");
    ASSERT_FALSE(umbrella.empty());
    std::string headers;
    tmaintest::run("cd " + quote(prefix + "/include") + " && find tmain -name '*.h' | sort", &headers);
    std::istringstream lines(headers);
    std::string h;
    int count = 0;
    while (std::getline(lines, h)) {
        if (h == "tmain/tmain.h" || h == "tmain/Export.h")
            continue;
        ++count;
        EXPECT_NE(std::string::npos, umbrella.find("<" + h + ">")) << h << " missing from tmain/tmain.h";
        EXPECT_EQ(std::string::npos, h.find("/detail/")) << "private header installed: " << h;
    }
    EXPECT_GT(count, 30);

    std::string src = dir.file("consumer");
    tmaintest::writeFile(dir.file("consumer.cpp"), kConsumer);
    tmaintest::run("mkdir -p " + quote(src));
    tmaintest::writeFile(src + "/main.cpp", kConsumer);
    tmaintest::writeFile(src + "/CMakeLists.txt", "cmake_minimum_required(VERSION 3.16)\n"
                                                  "project(consumer CXX)\n"
                                                  "set(CMAKE_CXX_STANDARD 17)\n"
                                                  "find_package(tmain REQUIRED)\n"
                                                  "add_executable(consumer main.cpp)\n"
                                                  "target_link_libraries(consumer PRIVATE tmain::tmain)\n");
    std::string flags = std::string(TMAIN_SANITIZE_FLAGS);
    std::string configure =
        "cmake -S " + quote(src) + " -B " + quote(dir.file("cbuild")) +
        " -DCMAKE_PREFIX_PATH=" + quote(prefix) + " -DCMAKE_CXX_COMPILER=" + quote(TMAIN_CXX_COMPILER) +
        " -DCMAKE_CXX_FLAGS=" + quote(flags) + " -DCMAKE_EXE_LINKER_FLAGS=" + quote(flags) + " 2>&1";
    ASSERT_EQ(0, tmaintest::run(configure, &out)) << out;
    ASSERT_EQ(0, tmaintest::run("cmake --build " + quote(dir.file("cbuild")) + " 2>&1", &out)) << out;
    std::string libdir;
    tmaintest::run("dirname $(find " + quote(prefix) + " -name 'libtmain.so*' | head -1)", &libdir);
    while (!libdir.empty() && libdir.back() == '\n')
        libdir.pop_back();
    ASSERT_EQ(0, tmaintest::run("LD_LIBRARY_PATH=" + quote(libdir) + " " + quote(dir.file("cbuild/consumer")),
                                &out));
    EXPECT_EQ("15 pkg a9993e364706816aba3e25717850c26c9cd0d89d\n", out);

    // The same through pkg-config.
    TMAIN_REQUIRE_TOOL("pkg-config");
    std::string pc;
    ASSERT_EQ(0, tmaintest::run("PKG_CONFIG_PATH=" + quote(libdir + "/pkgconfig") +
                                    " pkg-config --cflags --libs tmain",
                                &pc));
    while (!pc.empty() && pc.back() == '\n')
        pc.pop_back();
    ASSERT_EQ(0, tmaintest::run(quote(TMAIN_CXX_COMPILER) + " -std=c++17 " + flags + " " +
                                    quote(dir.file("consumer.cpp")) + " -o " +
                                    quote(dir.file("pc-consumer")) + " " + pc + " 2>&1",
                                &out))
        << out;
    ASSERT_EQ(
        0, tmaintest::run("LD_LIBRARY_PATH=" + quote(libdir) + " " + quote(dir.file("pc-consumer")), &out));
    EXPECT_EQ("15 pkg a9993e364706816aba3e25717850c26c9cd0d89d\n", out);
}

} // namespace
