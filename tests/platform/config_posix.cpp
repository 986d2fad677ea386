// Configuration stores with POSIX processes: a writer killed with SIGKILL
// many times never leaves a damaged "values" file; the registry kept as
// directories, and the same key operations built with mingw under Wine.
#include "config_checks.h"
#include "config_registry_checks.h"
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tmain/json/JSObject.h>
#include <tmain/platform/FileConfigurationStore.h>
#include <tmain/platform/RegistryConfigurationStore.h>
#include <tmain/stream/ByteInputStream.h>
#include <unistd.h>

using namespace tarso::platform;
using namespace configtest;
using ::core::SmartPtr;
using tmaintest::readFile;
namespace fs = std::filesystem;

TEST(FileConfigurationStore, KilledWriterLeavesOldOrNewFile) {
    tmaintest::TempDir t;
    for (int round = 0; round < 20; ++round) {
        int fds[2];
        ASSERT_EQ(0, pipe(fds));
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            SmartPtr<ConfigurationStore> s = ConfigurationStore::getCustom(t.path().c_str(), true);
            for (int i = s->getParameterInt("n", 0) + 1;; ++i)
                if (s->setParameter(("k" + std::to_string(i % 20)).c_str(), i) && s->setParameter("n", i))
                    if (write(fds[1], &i, sizeof i) != sizeof i)
                        _exit(1);
        }
        close(fds[1]);
        int confirmed = 0, i, seen = 0, target = 1 + round * 7 % 30;
        while (seen < target && read(fds[0], &i, sizeof i) == sizeof i)
            confirmed = i, ++seen;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        while (read(fds[0], &i, sizeof i) == sizeof i)
            confirmed = i;
        close(fds[0]);
        SCOPED_TRACE(round);
        std::string text = readFile(t.path() + "/values");
        tarso::stream::ByteInputStream in(text.data(), (unsigned)text.size(), false);
        SmartPtr<tarso::json::JSObject> o;
        EXPECT_NO_THROW(o = tarso::json::JSObject::parse(&in));
        ASSERT_TRUE(o);
        int n = o->getInt("n", -1);
        EXPECT_TRUE(n == confirmed || n == confirmed + 1) << n << " vs " << confirmed;
        for (int j = std::max(1, confirmed - 19); j <= confirmed; ++j)
            EXPECT_GE(o->getInt(("k" + std::to_string(j % 20)).c_str()), j);
    }
}

TEST(RegistryConfigurationStore, KeysTypesAndCodes) {
    tmaintest::TempDir t;
    setenv("XDG_CONFIG_HOME", t.file("home").c_str(), 1);
    setenv("XDG_CONFIG_DIRS", (t.file("etc") + ":/nowhere").c_str(), 1);
    EXPECT_MESSAGE(
        core::IllegalArgumentException,
        "Unable to open registry key: Software\\A\\B (error 0x2)\nThe system cannot find the file specified.",
        ConfigurationStore::getUser("A/B", false));
    SmartPtr<ConfigurationStore> s = ConfigurationStore::getUser("A/B", true);
    auto* reg = static_cast<RegistryConfigurationStore*>(s.get());
    EXPECT_JOINED("Software\\A\\B|0|2147483649|", reg->getKeyPath(), reg->getRoot(),
                  (uint32_t)(uintptr_t)reg->getRootKey());
    fill(s);
    EXPECT_EQ("1|-3|1099511627776|1|x\"y\xC3\xA9|3|5|7|dflt|0|1|", readBack(s));
    std::string key = t.file("home/tmain/registry/HKCU/Software/A/B/");
    EXPECT_EQ(std::string("\x0b\0\0\0\0\0\0\0\0\x01\0\0", 12), readFile(key + "\\l"));
    EXPECT_EQ(std::string("\x01\0\0\0x\"y\xC3\xA9\0", 10), readFile(key + "\\s"));
    EXPECT_EQ(std::string("\x03\0\0\0\xcd\xcc\xcc\x3d", 8), readFile(key + "\\f"));
    // bool and int are both DWORDs; the kinds stay apart otherwise.
    EXPECT_JOINED("2|2|6|3|4|2|", s->getParameterType("b"), s->getParameterType("i"),
                  s->getParameterType("l"), s->getParameterType("f"), s->getParameterType("s"),
                  s->getParameterType("x/Y"));
    EXPECT_MESSAGE(core::Exception, "Unable to get parameter i as float", s->getParameterFloat("i"));
    EXPECT_MESSAGE(core::Exception, "Unable to get parameter l as int", s->getParameterInt("l"));
    EXPECT_MESSAGE(core::Exception, "Unable to get parameter f as string",
                   s->getParameterString("f", key, nullptr));
    // Names ignore case and keep the case first written; another process's
    // write is seen at once.
    EXPECT_TRUE(s->setParameter("I", 9));
    pid_t pid = fork();
    if (pid == 0)
        _exit(ConfigurationStore::getUser("a/b", false)->setParameter("X/y", 11) ? 0 : 1);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(0, status);
    std::vector<std::string> values, containers;
    s->list(&values, &containers);
    EXPECT_EQ("b,f,i,l,p,s,|x,", names(values) + "|" + names(containers));
    EXPECT_JOINED("9|11|", s->getParameterInt("i"),
                  SmartPtr<ConfigurationStore>(s->getContainer("X", false))->getParameterInt("Y"));
    EXPECT_JOINED("1|0|1|0|", s->remove("I", false), s->remove("i", false), s->remove("x", true),
                  s->hasParameter("x/y"));
    SmartPtr<ConfigurationStore> sys = ConfigurationStore::getSystem("M", true);
    EXPECT_TRUE(sys->setParameter("v", 1) && fs::exists(t.file("etc/tmain/registry/HKLM/Software/M/\\v")));
    // A tree the process may not write: Windows' access-denied code and text.
    pid = fork();
    if (pid == 0) {
        if (geteuid() == 0 && setuid(65534) != 0)
            _exit(2);
        if (geteuid() != 0)
            chmod(t.file("home/tmain/registry/HKCU/Software").c_str(), 0500);
        try {
            ConfigurationStore::getUser("New", true);
        } catch (const core::IllegalArgumentException& e) {
            _exit(std::string(e.getMessage()) ==
                          "Unable to open registry key: Software\\New (error 0x5)\nAccess is denied."
                      ? 0
                      : 3);
        }
        _exit(4);
    }
    waitpid(pid, &status, 0);
    chmod(t.path().c_str(), 0700);
    EXPECT_EQ(0, status);
    unsetenv("XDG_CONFIG_HOME");
    unsetenv("XDG_CONFIG_DIRS");
}

TEST(RegistryConfigurationStore, SameKeyBehaviourOnLinuxAndUnderWine) {
    tmaintest::TempDir t;
    std::string src = TMAIN_SOURCE_DIR, driver = src + "/tests/platform/config_registry_driver.cc ";
    tmaintest::outputOf(std::string(TMAIN_CXX_COMPILER) + " -std=c++17 " + TMAIN_SANITIZE_FLAGS + " -I" +
                        src + " " + driver + src +
                        "/tmain/platform/detail/RegistryKey_posix.cpp -L" TMAIN_BINARY_DIR
                        " -ltmain -Wl,-rpath," TMAIN_BINARY_DIR " -o " +
                        t.file("reg"));
    std::string onLinux =
        tmaintest::outputOf("XDG_CONFIG_HOME=" + t.file("home") + " " + t.file("reg") + " T");
    EXPECT_EQ(REGISTRY_TRANSCRIPT, onLinux);
    TMAIN_REQUIRE_TOOL("wine");
    TMAIN_REQUIRE_TOOL("x86_64-w64-mingw32-g++-posix");
    tmaintest::outputOf("x86_64-w64-mingw32-g++-posix -std=c++17 -static -I" + src + " " + driver + src +
                        "/tmain/platform/detail/RegistryKey_win32.cpp -o " + t.file("reg.exe"));
    EXPECT_EQ(onLinux, tmaintest::outputOf("WINEPREFIX=" + t.file("wine") + " WINEDEBUG=-all wine " +
                                           t.file("reg.exe") + " T 2>/dev/null"));
}
