// Proxy discovery from the current user's settings (the WinHTTP record in the
// registry) and NTLM through SSPI.
#include "../support/TestSupport.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <tmain/foundation/Base64.h>
#include <tmain/http/AuthenticationProcessNTLM.h>
#include <tmain/http/ProxyResolver.h>
#include <tmain/http/Request.h>
#include <tmain/http/Response.h>
#include <tmain/http/URL.h>
#include <windows.h>

using namespace tarso::http;
using tmaintest::ScopedLogCapture;

namespace {

const char* const CONNECTIONS =
    "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
const char* const RECORD = "DefaultConnectionSettings";

/// Replaces the current user's connection settings record for a test and
/// restores it afterwards. The record: version 0x46, a counter, the flags
/// (1 direct, 2 proxy, 4 configuration script, 8 auto-detect), then the
/// proxy, the bypass list and the script address, each a 32-bit length and
/// its text.
class ConnectionSettings {
public:
    ConnectionSettings() {
        RegCreateKeyExA(HKEY_CURRENT_USER, CONNECTIONS, 0, NULL, 0, KEY_READ | KEY_WRITE, NULL, &mKey, NULL);
        DWORD size = 0;
        mPresent = RegQueryValueExA(mKey, RECORD, NULL, NULL, NULL, &size) == ERROR_SUCCESS;
        mSaved.resize(size);
        if (mPresent && size)
            RegQueryValueExA(mKey, RECORD, NULL, NULL, mSaved.data(), &size);
    }
    ~ConnectionSettings() {
        mPresent ? RegSetValueExA(mKey, RECORD, 0, REG_BINARY, mSaved.data(), (DWORD)mSaved.size())
                 : RegDeleteValueA(mKey, RECORD);
        RegCloseKey(mKey);
        ProxyResolver::shutdown();
    }
    void set(DWORD flags, const std::string& proxy, const std::string& bypass) {
        std::vector<BYTE> record;
        auto put32 = [&](DWORD v) { record.insert(record.end(), (BYTE*)&v, (BYTE*)&v + 4); };
        auto putText = [&](const std::string& t) {
            put32((DWORD)t.size());
            record.insert(record.end(), t.begin(), t.end());
        };
        put32(0x46);
        put32(++mCounter);
        put32(flags);
        putText(proxy);
        putText(bypass);
        putText("");
        record.resize(record.size() + 32, 0);
        RegSetValueExA(mKey, RECORD, 0, REG_BINARY, record.data(), (DWORD)record.size());
    }

private:
    HKEY mKey = NULL;
    bool mPresent = false;
    std::vector<BYTE> mSaved;
    DWORD mCounter = 100;
};

std::string resolved(const char* url) {
    URL u(url);
    Proxy p;
    return ProxyResolver::resolve(&u, p) ? std::string(p.getHost()) + ":" + std::to_string(p.getPort())
                                         : "direct";
}

std::string joined(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& l : lines)
        out += l + "\n";
    return out;
}

bool underWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version") != NULL;
}

} // namespace

TEST(WinProxyTest, UserSettingsDiscovery) {
    ConnectionSettings settings;
    struct Case {
        DWORD flags;
        const char* proxy;
        const char* bypass;
        const char* resolutions; // "url>expected ..."
        const char* logs;
    } cases[] = {
        {1, "", "", "http://a/>direct", "ProxyResolver: direct connection\n"},
        // The bypass text is searched for the host: a part of a longer name goes direct too.
        {3, "proxy.test:3128", "intranet;<local>",
         "http://x.org/>proxy.test:3128 https://x.org/>proxy.test:3128 http://intranet/>direct "
         "http://tranet/>direct",
         "ProxyResolver: proxy.test:3128\nProxyResolver bypass: intranet;<local>\n"},
        {3, "http=hp:80;https=sp:443", "", "http://x.org/>hp:80 https://x.org/>sp:443",
         "ProxyResolver: hp:80\nProxyResolver: sp:443\n"},
        // Proxy text in the record without the proxy flag is not in use.
        {1, "unused:1", "", "http://a/>direct", "ProxyResolver: direct connection\n"},
    };
    for (const Case& c : cases) {
        settings.set(c.flags, c.proxy, c.bypass);
        ScopedLogCapture log;
        std::string results = std::to_string(ProxyResolver::initialize()) + "|";
        std::string list = c.resolutions;
        for (size_t pos = 0, end; pos < list.size(); pos = end + 1) {
            end = list.find(' ', pos);
            end = end == std::string::npos ? list.size() : end;
            std::string r = list.substr(pos, end - pos);
            results += r.substr(0, r.find('>') + 1) + resolved(r.substr(0, r.find('>')).c_str()) + " ";
        }
        EXPECT_EQ("1|" + std::string(c.resolutions) + " " + c.logs, results + joined(log->messages()))
            << c.proxy;
    }
}

TEST(WinProxyTest, NTLMThroughSSPI) {
    Request request("http://target.test/", Request::GET);
    std::unique_ptr<Response> challenge(new Response(Response::Status{407, "x"}));
    challenge->getHeaders().add("proxy-authenticate", "NTLM");
    std::unique_ptr<AuthenticationProcess> process;
    {
        ScopedLogCapture log;
        process.reset(ProxyResolver::initAuthentication(&request, challenge.get(), nullptr));
        // The NTLM package of wine needs winbind's ntlm_auth; without it no credentials exist.
        if (!process && underWine() &&
            log->contains("AuthorizationProcessNTLM::init: unable to acquire credentials"))
            GTEST_SKIP() << "wine's NTLM security package needs winbind's ntlm_auth, which is not installed: "
                            "AcquireCredentialsHandleA(\"NTLM\") fails";
    }
    ASSERT_NE(nullptr, process);
    // A negotiation message: "NTLMSSP\0" and type 1.
    const char* header = request.getHeaders().get("proxy-authorization");
    const std::string value = header ? header : "null";
    ASSERT_EQ("NTLM ", value.substr(0, 5));
    std::string token(value.size(), '\0');
    token.resize(
        (size_t)std::max(0, text::base64_decode(value.c_str() + 5, &token[0], (unsigned)token.size())));
    EXPECT_EQ(std::string("NTLMSSP\0\1\0\0\0", 12), token.substr(0, 12));
    EXPECT_EQ(AuthenticationProcess::STATUS_CONTINUE, process->getStatus());

    // A challenge that is no NTLM message: the step fails and keeps the last token.
    std::unique_ptr<Response> bad(new Response(Response::Status{407, "x"}));
    bad->getHeaders().add("proxy-authenticate", "NTLM eHh4eA==");
    ScopedLogCapture log;
    EXPECT_EQ(AuthenticationProcess::STATUS_FINISHED, process->process(&request, bad.get(), nullptr));
    EXPECT_FALSE(process->isSuccess());
    EXPECT_STREQ(value.c_str(), request.getHeaders().get("proxy-authorization"));
    const std::string error =
        "AuthorizationProcessNTLM::generateAuthorization: unable to build authorization (";
    ASSERT_EQ(1u, log->messages(logging::LEVEL_ERROR).size());
    EXPECT_EQ(error, log->messages(logging::LEVEL_ERROR)[0].substr(0, error.size()));
    ProxyResolver::endAuthentication(process.release());
}
