// The cache file system in front of the HTTP file system, against nginx:
// what goes over the wire, what lands on disk, a crash mid-transfer, and
// threads sharing one cache.
#include "HttpfsFixture.h"
#include <csignal>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/SharedCacheInfo.h>
#include <unistd.h>

using namespace tarso;
using tmaintest::HttpfsFixture;

namespace {

class HttpCache : public HttpfsFixture {
protected:
    void SetUp() override {
        HttpfsFixture::SetUp();
        if (!IsSkipped() && !HasFailure())
            cache = new vfs::CacheFileSystem(cacheDir.path().c_str(), fs.get());
    }
    std::string readThrough(vfs::FileSystem* c, const char* path, unsigned chunk = 65536) {
        ::core::SmartPtr<vfs::File> f(c->lookup(path));
        std::unique_ptr<stream::InputStream> in(f->getInputStream());
        in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
        return readAll(in.get(), chunk);
    }
    std::string readRange(const char* path, unsigned off, unsigned n) {
        ::core::SmartPtr<vfs::File> f(cache->lookup(path));
        std::unique_ptr<stream::InputStream> in(f->getInputStream());
        in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
        in->seek((int)off, stream::Stream::SM_BEGIN);
        return readN(in.get(), n);
    }
    bool onDisk(const std::string& name) const {
        struct stat st;
        return stat((cacheDir.path() + "/" + name).c_str(), &st) == 0;
    }
    static std::string tail(const std::string& line, int fields) { // the last `fields` fields of a log line
        size_t pos = line.size();
        for (int i = 0; i < fields && pos != std::string::npos; ++i)
            pos = line.rfind(' ', pos - 1);
        return line.substr(pos + 1);
    }

    tmaintest::TempDir cacheDir;
    ::core::SmartPtr<vfs::CacheFileSystem> cache;
};

} // namespace

TEST_F(HttpCache, OneGetThenTheDisk) {
    const std::string data = put("c.bin", (1 << 20) + 123, 11, 1400000000);
    EXPECT_TRUE(data == readThrough(cache.get(), "c.bin"));
    std::vector<std::string> lines = logFor("/root/c.bin");
    // One HEAD for the lookup and one plain GET that sent exactly the size.
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("HEAD /root/c.bin \"-\" 200 0", lines[0]);
    EXPECT_EQ("GET /root/c.bin \"-\" 200 " + std::to_string(data.size()), lines[1]);
    // The completed file carries the server's Last-Modified; no data or map file is left.
    struct stat st;
    ASSERT_EQ(0, stat((cacheDir.path() + "/c.bin").c_str(), &st));
    EXPECT_EQ(1400000000, st.st_mtime);
    EXPECT_EQ((off_t)data.size(), st.st_size);
    EXPECT_FALSE(onDisk("c.bin.tcache") || onDisk("c.bin.tcmap"));
    // Read again, in small pieces: from the disk, not a byte over the wire.
    EXPECT_TRUE(data == readThrough(cache.get(), "c.bin", 1000));
    EXPECT_EQ(lines, logFor("/root/c.bin"));

    // A reader that starts mid-file costs one ranged request, from there.
    const std::string mid = put("m.bin", 100000, 12, 1400000000);
    EXPECT_TRUE(mid.substr(60000, 5000) == readRange("m.bin", 60000, 5000));
    lines = logFor("/root/m.bin");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("GET /root/m.bin \"bytes=60000-99999\" 206", lines[1].substr(0, lines[1].rfind(' ')));
}

TEST_F(HttpCache, CrashedReaderResumesWithOneRangedGet) {
    const unsigned size = 10 << 20, cut = 6 << 20;
    const std::string data = put("r.bin", size, 12);
    cache = nullptr;
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        // The child reads 6 MiB through a cache of its own, reports, and waits to be killed.
        close(ready[0]);
        ::core::SmartPtr<vfs::HTTPFileSystem> h(
            new vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000));
        ::core::SmartPtr<vfs::CacheFileSystem> c(new vfs::CacheFileSystem(cacheDir.path().c_str(), h.get()));
        ::core::SmartPtr<vfs::File> f(c->lookup("r.bin"));
        std::unique_ptr<stream::InputStream> in(f->getInputStream());
        in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
        std::string got(cut, '\0');
        for (unsigned off = 0; off < cut; off += 65536)
            if (in->read(&got[off], 1, 65536) != 65536)
                _exit(1);
        char ok = got == data.substr(0, cut) ? 'y' : 'n';
        if (write(ready[1], &ok, 1) != 1)
            _exit(2);
        for (;;)
            pause();
    }
    close(ready[1]);
    char ok = 0;
    ASSERT_EQ(1, read(ready[0], &ok, 1));
    close(ready[0]);
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_EQ('y', ok);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_TRUE(onDisk("r.bin.tcache") && onDisk("r.bin.tcmap"));

    cache = new vfs::CacheFileSystem(cacheDir.path().c_str(), fs.get());
    EXPECT_TRUE(data == readThrough(cache.get(), "r.bin"));
    // The map was saved at 4 MiB: the rest comes in one ranged request.
    const unsigned saved = vfs::SharedCacheInfo::MAP_SAVE_INTERVAL;
    std::vector<std::string> ranged;
    for (const std::string& line : logFor("/root/r.bin"))
        if (line.find("\"bytes=") != std::string::npos)
            ranged.push_back(line);
    ASSERT_EQ(1u, ranged.size());
    EXPECT_EQ("\"bytes=" + std::to_string(saved) + "-" + std::to_string(size - 1) + "\" 206 " +
                  std::to_string(size - saved),
              tail(ranged[0], 3));
    EXPECT_TRUE(onDisk("r.bin") && !onDisk("r.bin.tcache") && !onDisk("r.bin.tcmap"));
}

TEST_F(HttpCache, EightThreadsShareOneCache) {
    std::vector<std::string> data;
    for (int i = 0; i < 4; ++i)
        data.push_back(put("t" + std::to_string(i), 700000 + 777 * i, 40 + i));
    std::atomic<int> wrong{0};
    tmaintest::onThreads(8, [&](int t) {
        std::mt19937 rng(100 + t);
        for (int i = 0; i < 25; ++i) {
            int k = (t + i) % 4;
            const std::string& want = data[k];
            unsigned off = rng() % want.size(), n = 1 + rng() % (i % 2 ? 200 : 150000);
            wrong += readRange(("t" + std::to_string(k)).c_str(), off, n) != want.substr(off, n);
        }
    });
    EXPECT_EQ(0, wrong.load());
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(data[i] == readThrough(cache.get(), ("t" + std::to_string(i)).c_str())) << i;
}
