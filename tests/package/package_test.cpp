// The installed package: `cmake --install` into a temporary prefix, then a
// consumer project built against it with find_package(tmain) and with
// pkg-config, and every public header reachable from tmain/tmain.h.
#include "PackagePlatform.h"
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

TEST(Package, InstallsAndBuildsAConsumer) {
    TMAIN_REQUIRE_TOOL("cmake");
    auto quote = [](const std::string& s) { return "'" + s + "'"; };
    using tmaintest::outputOf;
    tmaintest::TempDir dir;
    const std::string prefix = dir.file("prefix"), src = dir.file("consumer"), flags = TMAIN_SANITIZE_FLAGS;
    outputOf("cmake --install " + quote(TMAIN_BINARY_DIR) + " --prefix " + quote(prefix) + " 2>&1");
    ASSERT_FALSE(HasFailure());

    // Every installed public header is included by the umbrella header.
    const std::string umbrella = tmaintest::readFile(prefix + "/include/tmain/tmain.h");
    std::istringstream headers(outputOf("cd " + quote(prefix + "/include") + " && find tmain -name '*.h'"));
    int count = 0;
    for (std::string h; std::getline(headers, h);) {
        if (h == "tmain/tmain.h" || h == "tmain/Export.h")
            continue;
        ++count;
        EXPECT_NE(std::string::npos, umbrella.find("<" + h + ">")) << h << " missing from tmain/tmain.h";
        EXPECT_EQ(std::string::npos, h.find("/detail/")) << "private header installed: " << h;
    }
    EXPECT_GT(count, 30);

    // A consumer built with find_package(tmain), then the same with pkg-config's flags.
    outputOf("mkdir -p " + quote(src));
    tmaintest::writeFile(src + "/main.cpp", kConsumer);
    tmaintest::writeFile(src + "/CMakeLists.txt", "cmake_minimum_required(VERSION 3.16)\n"
                                                  "project(consumer CXX)\n"
                                                  "set(CMAKE_CXX_STANDARD 17)\n"
                                                  "find_package(tmain REQUIRED)\n"
                                                  "add_executable(consumer main.cpp)\n"
                                                  "target_link_libraries(consumer PRIVATE tmain::tmain)\n");
    outputOf("cmake -S " + quote(src) + " -B " + quote(dir.file("cbuild")) + " " +
             consumerCMakeArguments(prefix) + " -DCMAKE_PREFIX_PATH=" + quote(prefix) +
             " -DCMAKE_CXX_COMPILER=" + quote(TMAIN_CXX_COMPILER) + " -DCMAKE_CXX_FLAGS=" + quote(flags) +
             " -DCMAKE_EXE_LINKER_FLAGS=" + quote(flags) + " 2>&1 && cmake --build " +
             quote(dir.file("cbuild")) + " 2>&1");
    const std::string expected = "15 pkg a9993e364706816aba3e25717850c26c9cd0d89d\n";
    EXPECT_EQ(expected, outputOf(consumerCommand(prefix, dir.file("cbuild/consumer"))));

    TMAIN_REQUIRE_TOOL("pkg-config");
    const std::string pcDir =
        outputOf("dirname $(find " + quote(prefix) + " -name tmain.pc | head -1) | tr -d '\\n'");
    const std::string pc =
        outputOf("PKG_CONFIG_PATH=" + quote(pcDir) + " pkg-config --cflags --libs tmain | tr -d '\\n'");
    outputOf(quote(TMAIN_CXX_COMPILER) + " -std=c++17 " + flags + " " + quote(src + "/main.cpp") + " -o " +
             quote(dir.file("pc-consumer")) + " " + pc + " 2>&1");
    EXPECT_EQ(expected, outputOf(consumerCommand(prefix, dir.file("pc-consumer"))));
}

} // namespace
