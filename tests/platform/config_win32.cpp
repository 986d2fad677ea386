// The registry store on the real registry (Wine's, under Wine), with
// RegQueryValueExA as the witness of types and bytes.
#include "config_checks.h"
#include <tmain/platform/RegistryConfigurationStore.h>
#include <windows.h>

using namespace tarso::platform;
using ::core::SmartPtr;

namespace {

/// Type and bytes of a value as the registry holds it.
std::string raw(HKEY root, const std::string& key, const char* name) {
    DWORD type = 0, size = 64;
    char data[64];
    LONG err = RegGetValueA(root, key.c_str(), name, RRF_RT_ANY, &type, data, &size);
    return err == ERROR_SUCCESS ? std::to_string(type) + ":" + std::string(data, size) : "missing";
}

TEST(RegistryConfigurationStore, RoundTripInTheRegistry) {
    const std::string root = "tmaintest-" + std::to_string(GetCurrentProcessId()),
                      key = "Software\\" + root + "\\A\\B";
    const std::string head = "Unable to open registry key: " + key + " (error 0x2)\n";
    std::string message = tmaintest::messageOf<core::IllegalArgumentException>(
        [&] { ConfigurationStore::getUser((root + "/A/B").c_str(), false); });
    EXPECT_TRUE(message.size() > head.size() && message.compare(0, head.size(), head) == 0) << message;

    SmartPtr<ConfigurationStore> s = ConfigurationStore::getUser((root + "/A/B").c_str(), true);
    EXPECT_EQ(HKEY_CURRENT_USER, static_cast<RegistryConfigurationStore*>(s.get())->getRootKey());
    configtest::fill(s);
    EXPECT_EQ("1|-3|1099511627776|1|x\"y\xC3\xA9|3|5|7|dflt|0|1|", configtest::readBack(s));
    EXPECT_JOINED(std::string("11:\0\0\0\0\0\x01\0\0", 11) + "|" + std::string("1:x\"y\xC3\xA9\0", 8) +
                      "|3:\xcd\xcc\xcc\x3d|4:\xfd\xff\xff\xff|" + std::string("4:\x03\0\0\0", 6) + "|",
                  raw(HKEY_CURRENT_USER, key, "l"), raw(HKEY_CURRENT_USER, key, "s"),
                  raw(HKEY_CURRENT_USER, key, "f"), raw(HKEY_CURRENT_USER, key, "i"),
                  raw(HKEY_CURRENT_USER, key + "\\x", "y"));
    // Names ignore case, as registry names do; a key goes with its sub-keys.
    EXPECT_JOINED("1|9|1|missing|", s->setParameter("I", 9), s->getParameterInt("i"), s->remove("X", true),
                  raw(HKEY_CURRENT_USER, key + "\\x", "y"));
    EXPECT_TRUE(ConfigurationStore::getSystem(root.c_str(), true)->setParameter("v", 1));
    EXPECT_EQ(std::string("4:\x01\0\0\0", 6), raw(HKEY_LOCAL_MACHINE, "Software\\" + root, "v"));
    EXPECT_TRUE(
        SmartPtr<ConfigurationStore>(ConfigurationStore::getUser(root.c_str(), false))->remove("A", true));
    EXPECT_EQ("missing", raw(HKEY_CURRENT_USER, key, "b"));
    RegDeleteKeyA(HKEY_CURRENT_USER, ("Software\\" + root).c_str());
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, ("Software\\" + root).c_str());
}

} // namespace
