// WinINet under the HTTP file system: ranged reads against nginx, the
// process-wide connection limits, and the system proxy settings of the
// current user (the registry values WinINet reads), through squid.
#include "HttpfsFixture.h"
#include <windows.h>
#include <wininet.h>

using namespace tarso;
using tmaintest::HttpfsFixture;

namespace {

const char* const INTERNET_SETTINGS = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

/// Sets the current user's proxy values for the test and restores them after.
class UserProxySettings {
public:
    UserProxySettings() {
        RegCreateKeyExA(HKEY_CURRENT_USER, INTERNET_SETTINGS, 0, NULL, 0, KEY_READ | KEY_WRITE, NULL, &mKey,
                        NULL);
        for (const char* name : {"ProxyEnable", "ProxyServer", "ProxyOverride"}) {
            Saved s;
            s.name = name;
            s.size = sizeof(s.data);
            s.present = RegQueryValueExA(mKey, name, NULL, &s.type, s.data, &s.size) == ERROR_SUCCESS;
            mSaved.push_back(s);
        }
    }
    ~UserProxySettings() {
        for (Saved& s : mSaved)
            s.present ? RegSetValueExA(mKey, s.name, 0, s.type, s.data, s.size)
                      : RegDeleteValueA(mKey, s.name);
        RegCloseKey(mKey);
    }
    void set(DWORD enable, const std::string& server, const std::string& bypass) {
        RegSetValueExA(mKey, "ProxyEnable", 0, REG_DWORD, (const BYTE*)&enable, sizeof(enable));
        RegSetValueExA(mKey, "ProxyServer", 0, REG_SZ, (const BYTE*)server.c_str(), (DWORD)server.size() + 1);
        RegSetValueExA(mKey, "ProxyOverride", 0, REG_SZ, (const BYTE*)bypass.c_str(),
                       (DWORD)bypass.size() + 1);
    }

private:
    struct Saved {
        const char* name;
        bool present;
        DWORD type, size;
        BYTE data[1024];
    };
    HKEY mKey = NULL;
    std::vector<Saved> mSaved;
};

DWORD perServerLimit(DWORD option) {
    DWORD value = 0, size = sizeof(value);
    return InternetQueryOptionA(NULL, option, &value, &size) ? value : 0;
}

} // namespace

TEST_F(HttpfsFixture, WinINetRangedReadsAndConnectionLimits) {
    const std::string big = put("w.bin", 2000000, 21);
    std::unique_ptr<stream::InputStream> in = openStream("w.bin");
    EXPECT_EQ(big.substr(0, 70000), readN(in.get(), 70000));
    const unsigned offsets[] = {5, 1234567, 65536, 1999990};
    for (unsigned off : offsets) {
        in->seek((int)off, stream::Stream::SM_BEGIN);
        ASSERT_EQ(big.substr(off, 100000), readN(in.get(), 100000)) << off;
    }
    EXPECT_TRUE(in->eof());
    std::vector<std::string> lines = logFor("/root/w.bin");
    ASSERT_EQ(6u, lines.size());
    std::string ranges;
    for (size_t i = 2; i < lines.size(); ++i) // the HEAD and the first GET carry no range
        ranges += lines[i].substr(0, lines[i].rfind(' ')) + "\n";
    EXPECT_EQ("GET /root/w.bin \"bytes=5-1999999\" 206\nGET /root/w.bin \"bytes=1234567-1999999\" 206\n"
              "GET /root/w.bin \"bytes=65536-1999999\" 206\nGET /root/w.bin \"bytes=1999990-1999999\" 206\n",
              ranges);

    // The per-server limits of WinINet are raised to the file systems' limit, never lowered.
    const unsigned saved = vfs::HTTPFileSystem::getMaxConnections();
    const DWORD before = perServerLimit(INTERNET_OPTION_MAX_CONNS_PER_SERVER);
    vfs::HTTPFileSystem::setMaxConnections(before + 7);
    ::core::SmartPtr<vfs::HTTPFileSystem> more(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000));
    vfs::HTTPFileSystem::setMaxConnections(1);
    ::core::SmartPtr<vfs::HTTPFileSystem> fewer(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000));
    vfs::HTTPFileSystem::setMaxConnections(saved);
    const std::string limits = std::to_string(perServerLimit(INTERNET_OPTION_MAX_CONNS_PER_SERVER)) + " " +
                               std::to_string(perServerLimit(INTERNET_OPTION_MAX_CONNS_PER_1_0_SERVER));
    EXPECT_EQ(std::to_string(before + 7) + " " + std::to_string(before + 7), limits);
    EXPECT_EQ(big.substr(0, 10), readN(open(fewer.get(), "w.bin").get(), 10));
}

TEST_F(HttpfsFixture, UserProxySettingsUntilBypassedOrSwitchedOff) {
    TMAIN_REQUIRE_TOOL("squid");
    tmaintest::Squid squid;
    ASSERT_TRUE(squid.running());
    const std::string via = put("via.bin", 300000, 1), direct = put("direct.bin", 7000, 2);
    UserProxySettings settings;
    settings.set(1, "127.0.0.1:" + std::to_string(squid.port()), "");
    // WinINet reads the settings when a file system opens its internet handle.
    ::core::SmartPtr<vfs::HTTPFileSystem> system(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000));
    std::unique_ptr<stream::InputStream> in = open(system.get(), "via.bin");
    EXPECT_EQ(via, readAll(in.get()));
    in->seek(100000, stream::Stream::SM_BEGIN);
    EXPECT_EQ(via.substr(100000), readAll(in.get()));
    in.reset();
    system->setUseSystemProxies(false);
    EXPECT_EQ(direct, readAll(open(system.get(), "direct.bin").get()));
    settings.set(1, "127.0.0.1:" + std::to_string(squid.port()), "127.0.0.1");
    ::core::SmartPtr<vfs::HTTPFileSystem> bypassed(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000));
    EXPECT_EQ(direct, readAll(open(bypassed.get(), "direct.bin").get()));

    // squid carried the HEAD, the GET and the ranged GET of via.bin, and nothing else.
    const std::string log = squid.accessLog(), u = " " + nginx->url("/root/via.bin") + " ";
    size_t proxied = 0;
    for (size_t pos = 0; (pos = log.find(u, pos)) != std::string::npos; ++pos)
        ++proxied;
    EXPECT_EQ(3u, proxied) << log;
    EXPECT_EQ(std::string::npos, log.find("/root/direct.bin")) << log;
    EXPECT_EQ("GET /root/via.bin \"bytes=100000-299999\" 206 200000", logFor("/root/via.bin").at(2));
    EXPECT_EQ(4u, logFor("/root/direct.bin").size());
}
