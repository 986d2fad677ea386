// The HTTP file system against scripted peers: cut and stalled bodies, silent
// servers, refused connections, the connection limit, and aborting I/O from
// another thread.
#include "HttpfsFixture.h"
#include <future>
#include <thread>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileNotFoundException.h>

using namespace tarso;
using tmaintest::HttpfsFixture;
using tmaintest::ScriptedConnection;
using tmaintest::ScriptedServer;

namespace {

const std::string BODY = tmaintest::randomBytes(5000, 9);

// Answers every request with a head announcing 100000 bytes and the first 5000;
// "/cut" then closes, "/stall" waits for the client to go, "/silent" never answers.
void script(ScriptedConnection& c) {
    for (std::string req; !(req = c.readRequest()).empty();) {
        if (req.find(" /silent ") != std::string::npos) {
            c.readUntilClose();
            return;
        }
        c.send("HTTP/1.1 200 OK\r\ncontent-length: 100000\r\n\r\n" + BODY);
        if (req.find(" /cut ") != std::string::npos)
            return;
        c.readUntilClose();
        return;
    }
}

} // namespace

TEST(HttpfsFaults, CutStalledSilentAndRefused) {
    ScriptedServer server(script);
    ::core::SmartPtr<vfs::HTTPFileSystem> fs(new vfs::HTTPFileSystem(server.url("").c_str(), 300, 300));
    fs->setFastLookup(true);
    std::string buf(20000, '\0');

    // A body shorter than its length is an error, never a clean end.
    std::unique_ptr<stream::InputStream> cut = HttpfsFixture::open(fs.get(), "cut");
    ASSERT_EQ(BODY.substr(0, 4000), HttpfsFixture::readN(cut.get(), 4000));
    std::string msg = tmaintest::messageOf<stream::IOException>([&] { cut->read(&buf[0], 1, 20000); });
    EXPECT_EQ(0u, msg.find("HTTPInputStream::read: error reading 20000 bytes from /cut (")) << msg;
    EXPECT_TRUE(cut->hasError());

    // A stalled body times out per read.
    std::unique_ptr<stream::InputStream> stall = HttpfsFixture::open(fs.get(), "stall");
    ASSERT_EQ(BODY, HttpfsFixture::readN(stall.get(), 5000));
    EXPECT_MESSAGE(stream::ReadTimeoutException,
                   "HTTPInputStream::read: time out reading 100 bytes from /stall",
                   stall->read(&buf[0], 1, 100));
    stall.reset();

    // No response head at all: a timeout at open.
    ::core::SmartPtr<vfs::File> silent(fs->lookup("silent"));
    std::unique_ptr<stream::InputStream> s(silent->getInputStream());
    EXPECT_MESSAGE(stream::ConnectTimeoutException,
                   "HTTPInputStream::open: time out sending GET command for /silent",
                   s->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY));
    fs->setFastLookup(false);
    EXPECT_MESSAGE(stream::ConnectTimeoutException,
                   "HTTPFileSystem: time out sending HEAD command to '" + server.url("/silent") + "' (300ms)",
                   fs->lookup("silent"));

    // Nobody listening (the port of a server that is gone); the code in the message is the platform's.
    std::unique_ptr<ScriptedServer> gone(new ScriptedServer(script));
    const std::string url = gone->url("");
    gone.reset();
    const std::string refused = "HTTPFileSystem: could not send HEAD command to '" + url + "/x' (";
    msg = tmaintest::messageOf<vfs::HTTPException>([&] {
        ::core::SmartPtr<vfs::HTTPFileSystem>(new vfs::HTTPFileSystem(url.c_str(), 1000, 1000))->lookup("x");
    });
    EXPECT_EQ(refused, msg.substr(0, refused.size())) << msg;
}

TEST(HttpfsFaults, AbortStopAndResume) {
    ScriptedServer server(script);
    ::core::SmartPtr<vfs::HTTPFileSystem> fs(new vfs::HTTPFileSystem(server.url("/").c_str(), 5000, 5000));
    fs->setFastLookup(true);
    std::unique_ptr<stream::InputStream> in = HttpfsFixture::open(fs.get(), "stall");
    std::string buf(100, '\0');
    ASSERT_EQ(BODY, HttpfsFixture::readN(in.get(), 5000));
    // A read blocked on the network ends aborted, not timed out, once I/O is aborted.
    std::promise<void> reading;
    std::string got;
    std::thread reader([&] {
        reading.set_value();
        got = tmaintest::messageOf<stream::StreamAbortedException>([&] { in->read(&buf[0], 1, 100); });
    });
    reading.get_future().wait();
    int before = fs->getIOHandle();
    fs->abortIO();
    reader.join();
    EXPECT_EQ("HTTPFileSystem IO operations have been aborted", got);
    EXPECT_EQ(before + 1, fs->getIOHandle());
    EXPECT_FALSE(fs->isValid(before));
    fs->resumeIO(); // does not revive streams of the old handle
    EXPECT_MESSAGE(stream::StreamAbortedException, "HTTPFileSystem IO operations have been aborted",
                   in->read(&buf[0], 1, 1));
    in.reset();
    std::unique_ptr<stream::InputStream> fresh = HttpfsFixture::open(fs.get(), "cut");
    EXPECT_EQ(BODY.substr(0, 100), HttpfsFixture::readN(fresh.get(), 100));

    // stopIO: lookups and opens refuse, reads of open streams abort; resumeIO restores all.
    fs->stopIO();
    EXPECT_MESSAGE(stream::StreamAbortedException, "HTTPFileSystem::mIOEnabled", fs->lookup("cut"));
    EXPECT_MESSAGE(stream::StreamAbortedException, "HTTPFileSystem::mIOEnabled", fs->exists("cut"));
    EXPECT_MESSAGE(stream::StreamAbortedException, "HTTPFileSystem IO operations have been aborted",
                   fresh->read(&buf[0], 1, 1));
    EXPECT_MESSAGE(stream::StreamAbortedException, "HTTPFileSystem::mIOEnabled",
                   fresh->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY));
    fs->resumeIO();
    fresh->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    EXPECT_EQ(BODY.substr(0, 10), HttpfsFixture::readN(fresh.get(), 10));
}

TEST_F(HttpfsFixture, ConnectionLimitAndKeepAlive) {
    const std::string big = put("big.bin", 8 << 20, 5);
    unsigned saved = vfs::HTTPFileSystem::getMaxConnections();
    vfs::HTTPFileSystem::setMaxConnections(2);
    ::core::SmartPtr<vfs::HTTPFileSystem> two(
        new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 300, 5000));
    vfs::HTTPFileSystem::setMaxConnections(saved);
    two->setFastLookup(true);
    // Two unfinished bodies hold both connections: a third request waits, then times out.
    std::unique_ptr<stream::InputStream> a = open(two.get(), "big.bin");
    std::unique_ptr<stream::InputStream> b = open(two.get(), "big.bin");
    EXPECT_EQ(big.substr(0, 1000), readN(a.get(), 1000));
    EXPECT_THROW(open(two.get(), "big.bin"), stream::ConnectTimeoutException);
    a.reset();
    std::unique_ptr<stream::InputStream> c = open(two.get(), "big.bin");
    c->seek(5 << 20, stream::Stream::SM_BEGIN);
    EXPECT_EQ(big.substr(5 << 20, 3000), readN(c.get(), 3000));
    EXPECT_EQ(big.substr(0, 2000), readN(b.get(), 2000));
}
