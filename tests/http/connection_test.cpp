// The HTTP connection against real peers on loopback: nginx for sized bodies
// and keep-alive, squid as a forward proxy, and scripted servers for the exact
// wire text, chunked bodies, redirects and hostile responses.
#include "../support/HttpPeers.h"
#include <gtest/gtest.h>
#include <tmain/http/Body.h>
#include <tmain/http/ChunkedInputStream.h>
#include <tmain/http/Client.h>
#include <tmain/http/Connection.h>
#include <tmain/http/HTTPException.h>
#include <tmain/http/ProxyResolver.h>
#include <tmain/http/ResponseInputStream.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/IOException.h>

using namespace tarso::http;
using tmaintest::ScriptedConnection;
using tmaintest::ScriptedServer;

namespace {

/// Every test starts with the resolver initialised and a callback that finds
/// no proxy, so connections go direct, whatever the system's settings, unless
/// a test says otherwise.
class HttpTest : public ::testing::Test {
protected:
    void SetUp() override {
        ProxyResolver::initialize();
        ProxyResolver::setCallback(new ProxyResolver::ResolveCallback([](const URL*, Proxy&) {}));
    }
    void TearDown() override {
        ProxyResolver::clearCallback();
        ProxyResolver::shutdown();
    }
};

std::string readBody(Response* r) {
    std::string out;
    if (!r->getBody())
        return out;
    tarso::stream::InputStream* in = r->getBody()->getData();
    char buf[65536];
    for (unsigned n; (n = in->read(buf, 1, sizeof(buf))) > 0;)
        out.append(buf, n);
    return out;
}

/// Sends a request and returns status, reason and body as "code|reason|body".
std::string fetch(Connection& c, const std::string& url, Request::Method m = Request::GET) {
    Request req(url.c_str(), m);
    std::unique_ptr<Response> r(c.process(&req));
    return std::to_string(r->getStatusCode()) + "|" + r->getStatusMessage() + "|" + readBody(r.get());
}

} // namespace

TEST_F(HttpTest, NginxSizedBodiesOnOneKeptAliveConnection) {
    TMAIN_REQUIRE_TOOL("nginx");
    tmaintest::TempDir root;
    const std::string big = tmaintest::randomBytes(3 << 20, 7);
    tmaintest::writeFile(root.file("big.bin"), big);
    tmaintest::writeFile(root.file("one"), "x");
    tmaintest::writeFile(root.file("empty"), "");
    tmaintest::Nginx nginx(root.path(),
                           "location /conn { return 200 \"$connection:$connection_requests\"; }");
    Connection c;
    const std::string first = fetch(c, nginx.url("/conn")), conn = first.substr(7, first.find(':') - 7);
    EXPECT_EQ("200|OK|" + conn + ":1", first);
    EXPECT_EQ("200|OK|" + big, fetch(c, nginx.url("/big.bin")));
    EXPECT_EQ("200|OK|x", fetch(c, nginx.url("/one")));
    EXPECT_EQ("200|OK|", fetch(c, nginx.url("/empty")));
    // HEAD reports the size but reads no body, and the connection goes on.
    Request head(nginx.url("/big.bin").c_str(), Request::HEAD);
    std::unique_ptr<Response> h(c.process(&head));
    EXPECT_EQ(big.size(), h->getContentLength());
    EXPECT_EQ("", readBody(h.get()));
    EXPECT_EQ(0u, fetch(c, nginx.url("/missing")).find("404|Not Found|<html>"));
    EXPECT_EQ("200|OK|" + conn + ":7", fetch(c, nginx.url("/conn")));
    EXPECT_FALSE(c.usesProxy());

    Client client;
    EXPECT_EQ(nullptr, client.getConnection());
    Request one(nginx.url("/one").c_str(), Request::GET);
    EXPECT_EQ("x", readBody(std::unique_ptr<Response>(client.send(&one)).get()));
    EXPECT_NE(nullptr, client.getConnection());
}

TEST_F(HttpTest, RequestWireText) {
    std::vector<std::string> seen;
    std::mutex m;
    ScriptedServer server([&](ScriptedConnection& c) {
        for (std::string req; !(req = c.readRequest()).empty();) {
            std::lock_guard<std::mutex> g(m);
            seen.push_back(req);
            c.send(tmaintest::httpResponse("200 OK", ""));
        }
    });
    const std::string port = std::to_string(server.port());
    Connection c;
    Request get(("127.0.0.1:" + port + "/a/b?x=1&y=2").c_str(), Request::GET);
    get.getHeaders().add("x-b", "2");
    get.getHeaders().add("accept", "*/*");
    get.getHeaders().add("x-b", "1");
    get.getHeaders().add("content-length", "99"); // never sent from the map
    std::unique_ptr<Response>(c.process(&get));
    Request post(server.url("/p").c_str(), Request::POST);
    std::unique_ptr<Response>(c.process(&post));
    Request put(server.url("/u").c_str(), Request::PUT);
    put.setContentType("text/plain");
    put.setBody(new Body(new tarso::stream::ByteInputStream("payload", 7, true), 7));
    put.getBody()->getData()->open(tarso::stream::Stream::OM_READ);
    std::unique_ptr<Response>(c.process(&put));
    Request bad(server.url("/").c_str(), (Request::Method)9);
    EXPECT_MESSAGE(core::IllegalArgumentException, "Invalid request method (9)", c.process(&bad));
    const std::string host = "host: 127.0.0.1:" + port + "\r\n";
    ASSERT_EQ(3u, seen.size());
    EXPECT_EQ("GET /a/b?x=1&y=2 HTTP/1.1\r\naccept: */*\r\nx-b: 2\r\nx-b: 1\r\n" + host + "\r\n", seen[0]);
    EXPECT_EQ("POST /p HTTP/1.1\r\n" + host + "content-length: 0\r\n\r\n", seen[1]);
    EXPECT_EQ("PUT /u HTTP/1.1\r\ncontent-type: text/plain\r\n" + host + "content-length: 7\r\n\r\npayload",
              seen[2]);
    EXPECT_EQ(1, server.connections());
}

TEST_F(HttpTest, ChunkedBodiesExtensionsTrailersAndKeepAlive) {
    tmaintest::ScopedLogCapture log;
    ScriptedServer server([](ScriptedConnection& c) {
        c.readRequest();
        c.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked;q=1\r\n\r\n"
               "1a;name=value\r\nabcdefghijklmnopqrstuvwxyz\r\n3\r\n123\r\n0\r\nx-trailer: t\r\nx-more: "
               "m\r\n\r\n");
        c.readRequest();
        c.send("HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
        c.readRequest();
        c.send("HTTP/1.1 200 OK\r\ncontent-length: 2\r\n\r\nok");
    });
    Connection c;
    EXPECT_EQ("200|OK|abcdefghijklmnopqrstuvwxyz123", fetch(c, server.url("/1")));
    EXPECT_EQ("200|OK|hello", fetch(c, server.url("/2")));
    EXPECT_EQ("200|OK|ok", fetch(c, server.url("/3")));
    EXPECT_EQ(1, server.connections());
    EXPECT_TRUE(log->contains("Chunked transfer extensions ignored: chunked;q=1"));
    EXPECT_TRUE(log->contains("Ignoring unsupported chunk extension: name=value"));

    // The stream on its own: sizes, closing and the unsupported operations.
    tarso::stream::ByteInputStream src("4\r\nabcd\r\n0\r\n\r\nNEXT", 18, true);
    src.open(tarso::stream::Stream::OM_READ);
    ChunkedInputStream chunked(&src, false);
    EXPECT_EQ(4u, chunked.available());
    chunked.close();
    char b[8];
    EXPECT_MESSAGE(core::IllegalStateException, "ChunkedInputStream is closed", chunked.read(b, 1, 8));
    chunked.open(tarso::stream::Stream::OM_READ);
    EXPECT_EQ(4u, chunked.read(b, 1, 8));
    EXPECT_TRUE(chunked.eof());
    EXPECT_EQ(4u, src.read(b, 1, 8)); // the trailer was consumed, nothing more
    EXPECT_EQ("NEXT", std::string(b, 4));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "ResponseInputStream::getSTLStream",
                   chunked.readLine(b, 8, '\n'));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "ChunkedInputStream::getSTLStream",
                   chunked.getSTLStream());
    ResponseInputStream sized(&src, 3, false);
    sized.close();
    EXPECT_MESSAGE(core::IllegalStateException, "ResponseInputStream is closed", sized.read(b, 1, 1));
}

TEST_F(HttpTest, ConnectionCloseAndDroppedKeepAliveReconnect) {
    ScriptedServer server([](ScriptedConnection& c) {
        const std::string req = c.readRequest();
        if (req.find("/close") != std::string::npos)
            c.send(tmaintest::httpResponse("200 OK", "closing", "Connection: Close\r\n"));
        else
            c.send(tmaintest::httpResponse("200 OK", "kept")); // then drops it anyway
    });
    Connection c;
    EXPECT_EQ("200|OK|closing", fetch(c, server.url("/close")));
    EXPECT_EQ("200|OK|kept", fetch(c, server.url("/a")));
    EXPECT_EQ("200|OK|kept", fetch(c, server.url("/b")));
    EXPECT_EQ(3, server.connections());
}

TEST_F(HttpTest, Redirects) {
    tmaintest::ScopedLogCapture log;
    ScriptedServer server([&](ScriptedConnection& c) {
        for (std::string req; !(req = c.readRequest()).empty();) {
            const std::string path = req.substr(req.find(' ') + 1, req.find(" HTTP/") - req.find(' ') - 1);
            const int hop = path[2] - '0';
            if (path.compare(0, 2, "/r") == 0 && hop > 0) {
                // Absolute locations, with a body that must be skipped.
                std::string next = path[3] == 'p' ? "/r" + std::to_string(hop - 1) + "p"
                                                  : "http://127.0.0.1:" + std::to_string(server.port()) +
                                                        "/r" + std::to_string(hop - 1);
                c.send(tmaintest::httpResponse("302 Found", std::string(300, 'z'),
                                               "Location: " + next + "\r\n"));
            } else if (path == "/nolocation") {
                c.send(tmaintest::httpResponse("301 Moved", "gone"));
            } else {
                c.send(tmaintest::httpResponse("200 OK",
                                               "final " + path + " " + req.substr(req.find("x-h:"), 6)));
            }
        }
    });
    Connection c;
    auto get = [&](const std::string& path) {
        Request req(server.url(path).c_str(), Request::GET);
        req.getHeaders().add("x-h", "v");
        std::unique_ptr<Response> r(c.process(&req));
        return std::to_string(r->getStatusCode()) + "|" + readBody(r.get());
    };
    // Two redirections are followed, with the caller's headers; a third is returned.
    EXPECT_EQ("200|final /r0 x-h: v", get("/r2"));
    EXPECT_EQ("200|final /r0p x-h: v", get("/r2p"));
    EXPECT_FALSE(log->contains("Too many redirections"));
    EXPECT_EQ("302|" + std::string(300, 'z'), get("/r3"));
    EXPECT_TRUE(
        log->contains("Too many redirections (2). Using last response as result", logging::LEVEL_WARN));
    EXPECT_EQ("301|gone", get("/nolocation"));
    EXPECT_TRUE(log->contains("No location header found in redirected response (301)"));
    c.setFlags(Connection::FLAG_PROXY_AUTHENTICATION);
    EXPECT_EQ("302|" + std::string(300, 'z'), get("/r1"));
}

TEST_F(HttpTest, HostileResponses) {
    struct Case {
        const char* name;
        std::string reply;  // sent after the request, then the server waits for the close
        std::string expect; // the exception's type and message, or "code|reason|body"
        bool readBody;
    };
    const std::string megaLine = "x-long: " + std::string(1 << 20, 'a') + "\r\n";
    std::string manyHeaders;
    for (int i = 0; i < 100000; ++i)
        manyHeaders += "x-h" + std::to_string(i) + ": v\r\n";
    const std::vector<Case> cases = {
        {"empty line", "\r\n", "tarso::http::HTTPException: Invalid server response: ", false},
        {"not http", "SMTP ready\r\n", "tarso::http::HTTPException: Invalid status line (SMTP ready)", false},
        {"bad code", "HTTP/1.1 abc OK\r\n", "tarso::http::HTTPException: Invalid status code (abc)", false},
        {"no code", "HTTP/1.1\r\n", "tarso::http::HTTPException: Invalid status code ()", false},
        {"gzip", "HTTP/1.1 200 OK\r\ntransfer-encoding: gzip\r\n\r\n",
         "tarso::http::HTTPException: Unsupported transfer-encoding: gzip", false},
        {"huge line", "HTTP/1.1 200 OK\r\n" + megaLine + "\r\n",
         "tarso::http::HTTPException: Response headers exceed 262144 bytes", false},
        {"many headers", "HTTP/1.1 200 OK\r\n" + manyHeaders + "\r\n",
         "tarso::http::HTTPException: Response headers exceed 262144 bytes", false},
        {"bad length", "HTTP/1.1 200 OK\r\ncontent-length: -1\r\n\r\n",
         "tarso::http::HTTPException: Invalid content-length (-1)", false},
        {"huge chunk", "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\nffffffffffffffff\r\n",
         "tarso::http::HTTPException: Invalid chunk size (ffffffffffffffff)", false},
        {"zz chunk", "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\nzz\r\n\r\n", "200|OK|", true},
        {"chunk cut", "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n10\r\nabc",
         "net::SocketClosedException: ", true},
        {"body cut", "HTTP/1.1 200 OK\r\ncontent-length: 10\r\n\r\nabc",
         "net::SocketClosedException: ", true},
        {"early close", "", "net::SocketClosedException: ", false},
        {"no reason", "HTTP/1.1 200\r\ncontent-length: 2\r\n\r\nok", "200||ok", true},
        {"silence", "HTTP/1.1 200 OK\r\n", "tarso::stream::TimeoutException: Socket read timeout (>200ms)",
         false},
    };
    for (const Case& k : cases) {
        ScriptedServer server([&](ScriptedConnection& c) {
            if (c.readRequest().empty())
                return;
            if (k.reply.empty())
                return; // close at once, also on the retry
            c.send(k.reply);
            if (std::string(k.name) != "silence")
                c.shutdownWrite();
            c.readUntilClose();
        });
        Connection c;
        c.setReadTimeout(200);
        std::string got;
        try {
            Request req(server.url("/").c_str(), Request::GET);
            std::unique_ptr<Response> r(c.process(&req));
            got = std::to_string(r->getStatusCode()) + "|" + r->getStatusMessage() + "|" +
                  (k.readBody ? readBody(r.get()) : "");
        } catch (const ::core::Exception& e) {
            got = std::string(e.getType().getName()) + ": " + e.getMessage();
        }
        EXPECT_EQ(k.expect, got) << k.name;
    }
}

TEST_F(HttpTest, ThroughSquid) {
    TMAIN_REQUIRE_TOOL("nginx");
    TMAIN_REQUIRE_TOOL("squid");
    tmaintest::TempDir root;
    const std::string data = tmaintest::randomBytes(200000, 3);
    tmaintest::writeFile(root.file("f.bin"), data);
    tmaintest::Nginx nginx(root.path());
    tmaintest::Squid squid;
    ASSERT_TRUE(squid.running());
    const unsigned port = squid.port();
    ProxyResolver::setCallback(
        new ProxyResolver::ResolveCallback([port](const URL*, Proxy& p) { p.set("127.0.0.1", port); }));
    Connection c;
    EXPECT_EQ("200|OK|" + data, fetch(c, nginx.url("/f.bin?q=1")));
    EXPECT_EQ("200|OK|" + data, fetch(c, nginx.url("/f.bin")));
    Proxy used;
    EXPECT_TRUE(c.usesProxy(used));
    EXPECT_EQ(squid.port(), used.getPort());
    // The target is the whole URL, and its query comes twice. squid logs an
    // exchange before it reads the next request on the connection.
    EXPECT_NE(std::string::npos, squid.accessLog().find("GET " + nginx.url("/f.bin?q=1?q=1") + " "));
}
