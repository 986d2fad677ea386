// File configuration stores on real directories, the same on every system.
#include "config_checks.h"
#include <algorithm>
#include <filesystem>
#include <tmain/platform/Application.h>
#include <tmain/platform/FileConfigurationStore.h>

using namespace tarso::platform;
using namespace configtest;
using ::core::SmartPtr;
using tmaintest::readFile;
namespace fs = std::filesystem;

namespace {
std::string dirListing(const std::string& dir) {
    std::vector<std::string> v;
    for (const auto& e : fs::directory_iterator(dir))
        v.push_back(e.path().filename().string());
    std::sort(v.begin(), v.end());
    return names(v);
}
} // namespace

TEST(FileConfigurationStore, RoundTripsFormatsAndMessages) {
    tmaintest::TempDir t;
    tmaintest::ScopedLogCapture log;
    std::string dir = t.file("store");
    SmartPtr<ConfigurationStore> s = ConfigurationStore::getCustom(dir.c_str(), false);
    EXPECT_MESSAGE(core::Exception, "FileConfigurationStore: unable to get parameter missing as int",
                   s->getParameterInt("missing"));
    fill(s);
    EXPECT_EQ("1|-3|1099511627776|1|x\"y\xC3\xA9|3|5|7|dflt|0|1|", readBack(s));
    EXPECT_EQ("{\"b\":true,\"i\":-3,\"l\":1099511627776,\"f\":0.10000000149011612,\"s\":\"x\\\"y\xC3\xA9\","
              "\"p\":7}",
              readFile(dir + "/values"));
    EXPECT_EQ("{\"y\":3}", readFile(dir + "/x/values"));
    EXPECT_EQ("values,x,", dirListing(dir)); // no temporaries left behind
    EXPECT_JOINED("1|2|6|3|4|0|0|", s->getParameterType("b"), s->getParameterType("i"),
                  s->getParameterType("l"), s->getParameterType("f"), s->getParameterType("s"),
                  s->getParameterType("q/r"), s->getParameterType("nope"));
    EXPECT_MESSAGE(core::Exception, "Unknown parameter nope", s->getParameter("nope"));
    EXPECT_MESSAGE(core::Exception, "FileConfigurationStore: unable to get parameter i as bool",
                   s->getParameterBool("i"));
    EXPECT_MESSAGE(core::Exception, "FileConfigurationStore: unable to get parameter b as float",
                   s->getParameterFloat("b"));
    EXPECT_MESSAGE(core::IllegalArgumentException, "FileConfigurationStore::getContainer:q does not exist",
                   s->getParameterInt("q/r", 1));
    EXPECT_MESSAGE(core::IllegalArgumentException, "FileConfigurationStore::getContainer:../x does not exist",
                   s->setParameter("../x/k", 1));
    std::vector<std::string> values, containers;
    s->list(&values, &containers);
    s->listValues("x", values);
    EXPECT_EQ("b,i,l,f,s,p,y,|x,", names(values) + "|" + names(containers));
    SmartPtr<ConfigurationStore> x = s->getContainer("x", false);
    EXPECT_EQ(3, x->getParameterInt("y"));
    // A second store sees the file; a leftover temporary and a damaged file
    // change nothing.
    tmaintest::writeFile(dir + "/values.tmp.AbCdEf", "{\"i\":");
    FileConfigurationStore again(FileConfigurationStore::FL_CUSTOM, dir.c_str(), false);
    EXPECT_EQ(-3, again.getParameterInt("i"));
    tmaintest::writeFile(dir + "/values", "{\"i\":");
    again.refresh();
    EXPECT_TRUE(log->contains("FileConfigurationStore::refresh:failed", logging::LEVEL_ERROR));
    EXPECT_EQ(-3, again.getParameterInt("i"));
    EXPECT_JOINED("1|0|1|0|", s->remove("i", false), s->remove("i", false), s->remove("x", true),
                  fs::exists(dir + "/x"));
    EXPECT_TRUE(log->contains("FileConfigurationStore::remove:failed for i", logging::LEVEL_WARN));
    EXPECT_EQ("{\"b\":true,\"l\":1099511627776,\"f\":0.10000000149011612,\"s\":\"x\\\"y\xC3\xA9\",\"p\":7}",
              readFile(dir + "/values"));
    // User and system stores live under the application's working path.
    Application::mWorkingPath = t.file("work");
    FileConfigurationStore user(FileConfigurationStore::FL_SYSTEM, "app", true);
    EXPECT_TRUE(
        log->contains("FileConfigurationStore:system:" + t.file("work/system/app"), logging::LEVEL_INFO));
    tmaintest::writeFile(t.file("file"), "");
    EXPECT_MESSAGE(core::IllegalArgumentException,
                   "FileConfigurationStore:unable to create store at:" + t.file("file/s"),
                   ConfigurationStore::getCustom(t.file("file/s").c_str(), true));
}

TEST(FileConfigurationStore, ThreadsShareTheRootLock) {
    tmaintest::TempDir t;
    SmartPtr<ConfigurationStore> s = ConfigurationStore::getCustom(t.path().c_str(), true);
    SmartPtr<ConfigurationStore> sub = s->getContainer("c", true);
    tmaintest::onThreads(4, [&](int n) {
        for (int i = 0; i < 25; ++i) {
            std::string k = "t" + std::to_string(n);
            EXPECT_TRUE(s->setParameter(k.c_str(), i) && sub->setParameter(k.c_str(), -i) &&
                        s->setParameter(("c/u" + std::to_string(n)).c_str(), i));
            EXPECT_EQ(i, s->getParameterInt(k.c_str()));
        }
    });
    // Writes through the root's paths and through the sub-store meet in one file.
    FileConfigurationStore fresh(FileConfigurationStore::FL_CUSTOM, t.path().c_str(), false);
    std::vector<std::string> values;
    fresh.listValues("c", values);
    EXPECT_JOINED("8|24|-24|24|", values.size(), fresh.getParameterInt("t3"), fresh.getParameterInt("c/t0"),
                  fresh.getParameterInt("c/u2"));
}
