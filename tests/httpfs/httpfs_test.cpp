// The HTTP file system against nginx: lookups, statuses, reads, ranges,
// deflate bodies, request data and the I/O switches.
#include "HttpfsFixture.h"
#include <algorithm>
#include <functional>
#include <mutex>
#include <random>
#include <tmain/stream/HTTPInputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/HTTPData.h>
#include <tmain/vfs/HTTPFile.h>
#include <zlib.h>

using namespace tarso;
using tmaintest::HttpfsFixture;

TEST_F(HttpfsFixture, LookupStatusesAndUnsupportedOperations) {
    put("a.bin", 1234, 1, 1500000123);
    ::core::SmartPtr<vfs::File> f(fs->lookup("a.bin"));
    EXPECT_EQ(vfs::HTTPFile::TYPE, f->getType());
    EXPECT_EQ("1234 1500000123 1500000123 " + nginx->url("/root/a.bin") + " 1234 1",
              std::to_string(f->getSize()) + " " + std::to_string(f->getLastModified()) + " " +
                  std::to_string(f->getCreated()) + " " + f->getAbsolutePath() + " " +
                  fs->getHeader("Content-Length") + " " + std::to_string(f->exists()));
    // Missing and failing paths reach the caller with their status; exists() says no for 404 only.
    EXPECT_EQ(404, statusOf([&] { ::core::SmartPtr<vfs::File>(fs->lookup("none.bin")); }));
    EXPECT_MESSAGE(vfs::HTTPException, "Server error", fs->lookup("none.bin"));
    EXPECT_EQ(503, statusOf([&] { ::core::SmartPtr<vfs::File>(fs->lookup("busy")); }));
    EXPECT_EQ("0 1", std::to_string(fs->exists("none.bin")) + " " + std::to_string(fs->exists("a.bin")));
    EXPECT_EQ(503, statusOf([&] { fs->exists("busy"); }));
    ::core::SmartPtr<vfs::File> moved(fs->lookup("moved")); // a 302 head is a success (size unknown)
    EXPECT_EQ(0u, moved->getSize());
    // Re-aiming an existing file; a lookup of a foreign file is refused.
    fs->lookup("moved", f.get(), nullptr);
    EXPECT_EQ(0u, f->getSize());
    EXPECT_STREQ("moved", f->getPath());
    ::core::SmartPtr<vfs::HTTPFileSystem> other(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 1000, 1000));
    EXPECT_THROW(other->lookup("a.bin", moved.get(), nullptr), ::core::IllegalArgumentException);
    EXPECT_EQ("HEAD /root/none.bin \"-\" 404 0", logFor("/root/none.bin").at(0).substr(0, 30));

    EXPECT_MESSAGE(vfs::HTTPException, "Invalid protocol for HTTPSileSystem (ftp://host:21/root)",
                   ::core::SmartPtr<vfs::HTTPFileSystem>(new vfs::HTTPFileSystem("ftp://host/root/", 1, 1)));
    EXPECT_MESSAGE(vfs::HTTPException, "HTTPFileSystem: Invalid URL",
                   ::core::SmartPtr<vfs::HTTPFileSystem>(new vfs::HTTPFileSystem("http://h:99999/", 1, 1)));
    struct {
        const char* text;
        std::function<void()> call;
    } unsupported[] = {{"HTTPFileSystem::create(...)", [&] { fs->create("x", true); }},
                       {"HTTPFileSystem::createPath(...)", [&] { fs->createPath("x"); }},
                       {"HTTPFileSystem::remove(...)", [&] { fs->remove("x", 0); }},
                       {"HTTPFileSystem::touch(...)", [&] { fs->touch("x"); }},
                       {"HTTPFileSystem::list(...)", [&] { delete fs->list("x"); }},
                       {"HTTPFileSystem::list(...)", [&] { delete fs->list("x", "*"); }},
                       {"HTTPFileSystem::isContainer(...)", [&] { fs->isContainer("x"); }},
                       {"HTTPFileSystem::getRelativePath(...)", [&] { fs->getRelativePath("x"); }},
                       {"HTTPFile::getOutputStream()", [&] { f->getOutputStream(); }},
                       {"HTTPInputStream::readLine not yet implemented", [&] {
                            std::unique_ptr<stream::InputStream> in(f->getInputStream());
                            char line[8];
                            in->readLine(line, 8, '\n');
                        }}};
    for (auto& u : unsupported)
        EXPECT_MESSAGE(::core::UnsupportedOperationException, u.text, u.call());
}

TEST_F(HttpfsFixture, ReadsSeeksAndRanges) {
    const std::string data = put("k.bin", 1000, 2);
    const std::string big = put("big.bin", 3000000, 3);
    std::unique_ptr<stream::InputStream> in = openStream("k.bin");
    in->seek(100, stream::Stream::SM_BEGIN);
    EXPECT_EQ(data.substr(100, 50), readN(in.get(), 50));
    EXPECT_EQ(150u, in->tell());
    in->seek(-30, stream::Stream::SM_CURRENT);
    EXPECT_EQ(data.substr(120), readAll(in.get(), 333));
    EXPECT_TRUE(in->eof());
    in->seek(10, stream::Stream::SM_END);
    EXPECT_EQ(data.substr(990), readN(in.get(), 100));
    in->seek(1000, stream::Stream::SM_BEGIN); // the end: nothing is sent, reads give 0
    EXPECT_EQ(0u, in->read(&std::string(10, ' ')[0], 1, 10));
    EXPECT_EQ(1000u, in->tell());
    EXPECT_EQ((std::vector<std::string>{"GET /root/k.bin \"-\" 200", "GET /root/k.bin \"bytes=100-999\" 206",
                                        "GET /root/k.bin \"bytes=120-999\" 206",
                                        "GET /root/k.bin \"bytes=990-999\" 206 10"}),
              [&] {
                  std::vector<std::string> lines = logFor("/root/k.bin");
                  for (size_t i = 0; i + 1 < lines.size(); ++i) // early closes send an unknown amount
                      lines[i] = lines[i].substr(0, lines[i].rfind(' '));
                  lines.erase(lines.begin()); // the lookup's HEAD
                  return lines;
              }());
    EXPECT_MESSAGE(stream::IOException, "HTTPInputStream::seek: invalid position -1 for /root/k.bin",
                   in->seek(-1, stream::Stream::SM_BEGIN));
    in->close();
    EXPECT_MESSAGE(stream::IOException, "HTTPInputStream: Stream not opened",
                   in->read(&std::string(1, 0)[0], 1, 1));
    EXPECT_MESSAGE(stream::IOException, "HTTPInputStream: Couldn't query data available", in->available());

    // Random seeks both ways over a large body, reads of all sizes.
    std::unique_ptr<stream::InputStream> b = openStream("big.bin");
    std::mt19937 rng(7);
    for (int i = 0; i < 40; ++i) {
        unsigned off = rng() % big.size(), n = 1 + rng() % (i % 3 ? 5000 : 700000);
        b->seek((int)off, stream::Stream::SM_BEGIN);
        ASSERT_EQ(big.substr(off, n), readN(b.get(), n)) << off << "+" << n;
        ASSERT_EQ(std::min<size_t>(off + n, big.size()), b->tell());
    }
    b->seek(0, stream::Stream::SM_BEGIN);
    EXPECT_EQ(big, readAll(b.get(), 100000));
    EXPECT_TRUE(b->eof());

    // A file deleted (or grown) since its lookup.
    ::core::SmartPtr<vfs::File> gone(fs->lookup("k.bin"));
    std::unique_ptr<stream::InputStream> g(gone->getInputStream());
    remove((docs.path() + "/root/k.bin").c_str());
    EXPECT_MESSAGE(vfs::FileNotFoundException, "/root/k.bin",
                   g->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY));
    put("k.bin", 1500, 4);
    tmaintest::ScopedLogCapture log;
    g->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    EXPECT_TRUE(log->contains(
        "HTTPInputStream size changed since file lookup for '/root/k.bin'! (was 1000, now is 1500)"));
    EXPECT_EQ(1500u, readAll(g.get()).size());
    // Opening a failing path gives its status.
    fs->setFastLookup(true);
    ::core::SmartPtr<vfs::File> busy(fs->lookup("busy"));
    std::unique_ptr<stream::InputStream> bs(busy->getInputStream());
    EXPECT_EQ(503, statusOf([&] { bs->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY); }));
}

TEST_F(HttpfsFixture, DeflateBodiesAreInflated) {
    std::string text;
    for (int i = 0; text.size() < 400000; ++i)
        text += "line " + std::to_string(i * 7919 % 10007) + " of a deflated body\n";
    uLongf n = compressBound(text.size());
    std::string packed(n, '\0');
    compress2((Bytef*)&packed[0], &n, (const Bytef*)text.data(), text.size(), 6);
    packed.resize(n);
    putData("z/d.txt", packed);
    ::core::SmartPtr<vfs::File> f(fs->lookup("z/d.txt"));
    EXPECT_EQ(packed.size(), f->getSize());
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    auto* http = static_cast<stream::HTTPInputStream*>(in.get());
    EXPECT_TRUE(http->isDeflated());
    EXPECT_EQ(text.substr(0, 1000), readN(in.get(), 1000));
    EXPECT_EQ(1000u, in->tell());
    in->seek(200000, stream::Stream::SM_BEGIN); // forward: inflating in place
    EXPECT_EQ(text.substr(200000, 5000), readN(in.get(), 5000));
    in->seek(-105000, stream::Stream::SM_CURRENT); // backwards: from the start again
    EXPECT_EQ(100000u, in->tell());
    EXPECT_EQ(text.substr(100000), readAll(in.get(), 7777));
    EXPECT_TRUE(in->eof());
    EXPECT_EQ((long long)text.size(), http->getSize());
    EXPECT_EQ(0u, in->read(&text[0], 1, 1));
    EXPECT_EQ(3u, logFor("/root/z/d.txt").size()); // the head and two GETs without ranges

    // A cut deflate body is an error, not a short file.
    putData("z/cut.txt", packed.substr(0, packed.size() / 2));
    EXPECT_THROW(readAll(openStream("z/cut.txt").get()), stream::IOException);
}

TEST_F(HttpfsFixture, RequestDataIsSentAsDescribed) {
    std::vector<std::string> requests;
    std::mutex m;
    tmaintest::ScriptedServer server([&](tmaintest::ScriptedConnection& c) {
        for (std::string req; !(req = c.readRequest()).empty();) {
            {
                std::lock_guard<std::mutex> lock(m);
                requests.push_back(req);
            }
            c.send(tmaintest::httpResponse("200 OK", "answer", "x-reply: yes\r\n"));
        }
    });
    ::core::SmartPtr<vfs::HTTPFileSystem> s(new vfs::HTTPFileSystem(server.url("/app").c_str(), 5000, 5000));
    ::core::SmartPtr<vfs::FormData> form(new vfs::FormData());
    form->setField("name", "a b&c");
    form->setField("n", "1");
    form->setField("name", "x/y"); // replaced in place
    EXPECT_EQ(2u, form->getFieldCount());
    form->getRequestHeaders().add("X-Token", "t1");
    ::core::SmartPtr<vfs::File> f(s->lookup("submit", form.get()));
    EXPECT_EQ(0, server.connections()); // the lookup sends nothing
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    EXPECT_EQ("answer", readAll(in.get()));
    EXPECT_STREQ("yes", form->getResponseHeaders().get("x-reply"));
    form->setMethod(http::Request::GET);
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    EXPECT_EQ("answer", readAll(in.get())); // a finished body frees its connection while open
    ::core::SmartPtr<vfs::HTTPData> raw(new vfs::HTTPData(http::Request::PUT));
    raw->setContent("\x01\x02\x03", 3, vfs::HTTPData::CS_COPY);
    ::core::SmartPtr<vfs::File> put(s->lookup("blob", raw.get()));
    std::unique_ptr<stream::InputStream>(put->getInputStream())
        ->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    std::lock_guard<std::mutex> lock(m);
    ASSERT_EQ(3u, requests.size());
    // Each request as its line, its header lines in name order (the order on the wire is the
    // transport's) and its body; the agent's name counts the file systems made so far.
    auto normal = [](const std::string& line, std::vector<std::string> headers, const std::string& body) {
        std::sort(headers.begin(), headers.end());
        std::string out = line + "\n";
        for (const std::string& h : headers)
            out += h.compare(0, 18, "User-Agent: tmain.") == 0 ? "User-Agent: tmain.N\n" : h + "\n";
        return out + "\n" + body;
    };
    std::string all, want;
    for (const std::string& r : requests) {
        size_t end = r.find("\r\n\r\n"), pos = r.find("\r\n");
        std::vector<std::string> headers;
        for (size_t next; pos < end; pos = next)
            headers.push_back(r.substr(pos + 2, (next = r.find("\r\n", pos + 2)) - pos - 2));
        all += normal(r.substr(0, r.find("\r\n")), headers, r.substr(end + 4)) + "|";
    }
    const std::vector<std::string> common = {"Host: 127.0.0.1:" + std::to_string(s->getPort()),
                                             "User-Agent: tmain.1",
                                             "Accept: */*",
                                             "Cache-Control: no-cache",
                                             "Pragma: no-cache",
                                             "accept-encoding: deflate"};
    auto with = [&](std::vector<std::string> extra) {
        extra.insert(extra.end(), common.begin(), common.end());
        return extra;
    };
    want =
        normal("POST /app/submit HTTP/1.1",
               with({"X-Token: t1", "Content-type: application/x-www-form-urlencoded", "Content-Length: 14"}),
               "name=x%2Fy&n=1") +
        "|" + normal("GET /app/submit?name=x%2Fy&n=1 HTTP/1.1", with({"X-Token: t1"}), "") + "|" +
        normal("PUT /app/blob HTTP/1.1",
               with({"Content-type: application/octet-stream", "Content-Length: 3"}), "\x01\x02\x03") +
        "|";
    EXPECT_EQ(want, all);
    EXPECT_EQ(1, server.connections()); // one kept-alive connection served all three
}
