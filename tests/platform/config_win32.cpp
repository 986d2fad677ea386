// The registry store on the real registry (Wine's, under Wine), with the
// Reg* functions themselves as the witness of keys, types and bytes.
#include "config_checks.h"
#include <algorithm>
#include <tmain/platform/RegistryConfigurationStore.h>
#include <windows.h>

using namespace tarso::platform;
using namespace configtest;
using ::core::SmartPtr;

namespace {

/// Type and bytes of a value as the registry holds it; "missing" when absent.
std::string raw(HKEY root, const std::string& key, const char* name) {
    HKEY h;
    if (RegOpenKeyExA(root, key.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS)
        return "missing";
    DWORD type = 0, size = 64;
    char data[64];
    LONG err = RegQueryValueExA(h, name, nullptr, &type, (BYTE*)data, &size);
    RegCloseKey(h);
    return err == ERROR_SUCCESS ? std::to_string(type) + ":" + std::string(data, size) : "missing";
}

TEST(RegistryConfigurationStore, RoundTripInTheRegistry) {
    const std::string root = "tmaintest-" + std::to_string(GetCurrentProcessId());
    const std::string key = "Software\\" + root + "\\A\\B";
    std::string message = tmaintest::messageOf<core::IllegalArgumentException>(
        [&] { ConfigurationStore::getUser((root + "/A/B").c_str(), false); });
    const std::string head = "Unable to open registry key: " + key + " (error 0x2)\n";
    EXPECT_EQ(head, message.substr(0, head.size()));
    EXPECT_GT(message.size(), head.size()); // the system's text follows
    EXPECT_EQ(std::string::npos, message.find_first_of("\r\n", head.size()));

    SmartPtr<ConfigurationStore> s = ConfigurationStore::getUser((root + "/A/B").c_str(), true);
    auto* reg = static_cast<RegistryConfigurationStore*>(s.get());
    EXPECT_JOINED(key + "|0|1|", reg->getKeyPath(), reg->getRoot(), reg->getRootKey() == HKEY_CURRENT_USER);
    fill(s);
    EXPECT_EQ("1|-3|1099511627776|1|x\"y\xC3\xA9|3|5|7|dflt|0|1|", readBack(s));
    EXPECT_EQ(std::string("11:\0\0\0\0\0\x01\0\0", 11), raw(HKEY_CURRENT_USER, key, "l"));
    EXPECT_EQ(std::string("1:x\"y\xC3\xA9\0", 8), raw(HKEY_CURRENT_USER, key, "s"));
    EXPECT_EQ(std::string("3:\xcd\xcc\xcc\x3d", 6), raw(HKEY_CURRENT_USER, key, "f"));
    EXPECT_EQ(std::string("4:\xfd\xff\xff\xff", 6), raw(HKEY_CURRENT_USER, key, "i"));
    EXPECT_EQ(std::string("4:\x01\0\0\0", 6), raw(HKEY_CURRENT_USER, key, "b"));
    EXPECT_EQ(std::string("4:\x03\0\0\0", 6), raw(HKEY_CURRENT_USER, key + "\\x", "y"));
    EXPECT_MESSAGE(core::Exception, "Unable to get parameter l as int", s->getParameterInt("l"));

    // Names ignore case, as registry names do.
    EXPECT_TRUE(s->setParameter("I", 9));
    std::vector<std::string> values, containers;
    s->list(&values, &containers);
    std::sort(values.begin(), values.end());
    EXPECT_EQ("b,f,i,l,p,s,|x,", names(values) + "|" + names(containers));
    EXPECT_JOINED("9|3|", s->getParameterInt("i"),
                  SmartPtr<ConfigurationStore>(s->getContainer("X", false))->getParameterInt("Y"));
    EXPECT_JOINED("1|0|1|0|missing|", s->remove("I", false), s->remove("i", false), s->remove("x", true),
                  s->hasParameter("x/y"), raw(HKEY_CURRENT_USER, key + "\\x", "y"));

    SmartPtr<ConfigurationStore> sys = ConfigurationStore::getSystem(root.c_str(), true);
    EXPECT_TRUE(sys->setParameter("v", 1));
    EXPECT_EQ(std::string("4:\x01\0\0\0", 6), raw(HKEY_LOCAL_MACHINE, "Software\\" + root, "v"));

    SmartPtr<ConfigurationStore> top = ConfigurationStore::getUser(root.c_str(), false);
    EXPECT_TRUE(top->remove("A", true));
    EXPECT_EQ("missing", raw(HKEY_CURRENT_USER, key, "b"));
    RegDeleteKeyA(HKEY_CURRENT_USER, ("Software\\" + root).c_str());
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, ("Software\\" + root).c_str());
}

} // namespace
