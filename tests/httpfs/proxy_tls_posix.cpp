// The HTTP file system's proxy and TLS settings against real peers: squid as
// the environment's proxy, nginx over http and over https with a self-signed
// certificate that the system's CA store does not trust.
#include "HttpfsFixture.h"
#include <cstdlib>
#include <map>
#include <sstream>
#include <tmain/stream/HTTPInputStream.h>

using namespace tarso;
using tmaintest::HttpfsFixture;

namespace {

const char* const PROXY_VARIABLES[] = {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY",
                                       "all_proxy",  "ALL_PROXY",  "no_proxy",    "NO_PROXY"};

/// nginx with a TLS listener as well, squid, and an environment without
/// proxies; both are restored afterwards.
class ProxyTlsTest : public HttpfsFixture {
protected:
    void SetUp() override {
        TMAIN_REQUIRE_TOOL("nginx");
        TMAIN_REQUIRE_TOOL("squid");
        TMAIN_REQUIRE_TOOL("openssl");
        for (const char* name : PROXY_VARIABLES) {
            if (const char* value = getenv(name))
                mSaved[name] = value;
            unsetenv(name);
        }
        tmaintest::run("mkdir -p '" + docs.path() + "/root'");
        ASSERT_TRUE(tmaintest::makeSelfSignedCertificate(certs.file("cert.pem"), certs.file("key.pem")));
        nginx.reset(new tmaintest::Nginx(docs.path(), "", {certs.file("cert.pem"), certs.file("key.pem")}));
        ASSERT_TRUE(nginx->running());
        ASSERT_TRUE(squid.running());
        fs = new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000);
    }
    void TearDown() override {
        vfs::HTTPFileSystem::setDefaultUseSystemProxies(true);
        for (const char* name : PROXY_VARIABLES)
            mSaved.count(name) ? setenv(name, mSaved[name].c_str(), 1) : unsetenv(name);
    }
    /// "METHOD URL" of every request in squid's access log, one per line (the
    /// fixture's start-up probe, a connection without a request, left out).
    std::string squidRequests() const {
        std::istringstream log(squid.accessLog());
        std::string line, out, field[7];
        while (std::getline(log, line)) {
            std::istringstream fields(line);
            for (std::string& f : field)
                fields >> f;
            if (field[5] != "-")
                out += field[5] + " " + field[6] + "\n";
        }
        return out;
    }
    static std::string readFrom(vfs::HTTPFileSystem* on, const char* path) {
        return readAll(open(on, path).get());
    }

    tmaintest::TempDir certs;
    tmaintest::Squid squid;
    std::map<std::string, std::string> mSaved;
};

} // namespace

TEST_F(ProxyTlsTest, EnvironmentProxyUntilExcludedOrSwitchedOff) {
    const std::string via = put("via.bin", 300000, 1), excluded = put("excluded.bin", 7000, 2),
                      off = put("off.bin", 7000, 3), byDefault = put("default.bin", 7000, 4);
    EXPECT_TRUE(vfs::HTTPFileSystem::getDefaultUseSystemProxies());
    EXPECT_TRUE(fs->getUseSystemProxies());
    setenv("http_proxy", ("http://127.0.0.1:" + std::to_string(squid.port())).c_str(), 1);
    // The lookup's HEAD, the stream's GET and, once that is read, a seek's ranged GET go through squid.
    std::unique_ptr<stream::InputStream> in = openStream("via.bin");
    EXPECT_EQ(via, readAll(in.get()));
    in->seek(100000, stream::Stream::SM_BEGIN);
    EXPECT_EQ(via.substr(100000), readAll(in.get()));
    in.reset();
    // Excluded by no_proxy, switched off on the file system, off by default for a new one: direct.
    setenv("no_proxy", "example.org,127.0.0.1", 1);
    EXPECT_EQ(excluded, readFrom(fs.get(), "excluded.bin"));
    unsetenv("no_proxy");
    fs->setUseSystemProxies(false);
    EXPECT_FALSE(fs->getUseSystemProxies());
    EXPECT_EQ(off, readFrom(fs.get(), "off.bin"));
    vfs::HTTPFileSystem::setDefaultUseSystemProxies(false);
    ::core::SmartPtr<vfs::HTTPFileSystem> plain(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000));
    EXPECT_FALSE(plain->getUseSystemProxies());
    EXPECT_EQ(byDefault, readFrom(plain.get(), "default.bin"));
    // Switched on again: a HEAD through squid, answered after squid logged all before it.
    fs->setUseSystemProxies(true);
    EXPECT_FALSE(fs->exists("after.bin"));
    const std::string u = nginx->url("/root/via.bin");
    std::string proxied = squidRequests();
    proxied = proxied.substr(0, proxied.find("HEAD " + nginx->url("/root/after.bin")));
    EXPECT_EQ("HEAD " + u + "\nGET " + u + "\nGET " + u + "\n", proxied);
    // nginx served them all, the proxied range intact.
    EXPECT_EQ("GET /root/via.bin \"bytes=100000-299999\" 206 200000", logFor("/root/via.bin").at(2));
    for (const char* uri : {"/root/excluded.bin", "/root/off.bin", "/root/default.bin"})
        EXPECT_EQ(2u, logFor(uri).size()) << uri;
}

TEST_F(ProxyTlsTest, UntrustedCertificateFailsVerification) {
    TMAIN_REQUIRE_TOOL("curl");
    const std::string data = put("a.bin", 5000, 5);
    // The listener and its certificate are sound: a client trusting that certificate reads the file.
    EXPECT_EQ(data, tmaintest::outputOf("curl -sS --noproxy '*' --cacert '" + certs.file("cert.pem") + "' " +
                                        nginx->tlsUrl("/root/a.bin")));
    ::core::SmartPtr<vfs::HTTPFileSystem> tls(
        new vfs::HTTPFileSystem(nginx->tlsUrl("/root").c_str(), 5000, 5000));
    EXPECT_STREQ("https", tls->getScheme());
    // curl's code 60: the peer's certificate could not be verified.
    const std::string head =
        "HTTPFileSystem: could not send HEAD command to '" + nginx->tlsUrl("/root/a.bin") + "' (60)";
    EXPECT_MESSAGE(vfs::HTTPException, head, ::core::SmartPtr<vfs::File>(tls->lookup("a.bin")));
    EXPECT_EQ(0, statusOf([&] { tls->exists("a.bin"); }));
    // Without a HEAD, the stream's GET meets the same refusal.
    tls->setFastLookup(true);
    ::core::SmartPtr<vfs::File> f(tls->lookup("a.bin"));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    EXPECT_MESSAGE(vfs::HTTPException,
                   "HTTPInputStream::open: could not send GET command for /root/a.bin (60)",
                   in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY));
    // https_proxy carries https requests: a CONNECT for the server's address, refused here.
    std::string connect;
    {
        tmaintest::ScriptedServer proxy([&](tmaintest::ScriptedConnection& c) {
            connect = c.readRequest();
            c.send(tmaintest::httpResponse("403 Forbidden", ""));
        });
        setenv("https_proxy", ("http://127.0.0.1:" + std::to_string(proxy.port())).c_str(), 1);
        EXPECT_THROW(tls->exists("a.bin"), vfs::HTTPException);
    }
    // Through a proxy that lets the tunnel up, the server's certificate still decides.
    setenv("https_proxy", ("http://127.0.0.1:" + std::to_string(squid.port())).c_str(), 1);
    tls->setFastLookup(false);
    EXPECT_MESSAGE(vfs::HTTPException, head, ::core::SmartPtr<vfs::File>(tls->lookup("a.bin")));
    const std::string target = "127.0.0.1:" + std::to_string(nginx->tlsPort());
    EXPECT_EQ("CONNECT " + target + " HTTP/1.1\r\nHost: " + target + "\r\n",
              connect.substr(0, connect.find("User-Agent:")));
    // No request of the file system reached nginx: each ended in the handshake or at the proxy.
    EXPECT_EQ(1u, logFor("/root/a.bin").size()) << nginx->accessLog();
}
