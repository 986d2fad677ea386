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
        return readAll(open(c, path).get(), chunk);
    }
    std::string readRange(const char* path, unsigned off, unsigned n) {
        std::unique_ptr<stream::InputStream> in = open(cache.get(), path);
        in->seek((int)off, stream::Stream::SM_BEGIN);
        return readN(in.get(), n);
    }
    /// Which of the complete file, its data file and its map are in the cache directory.
    std::string onDisk(const std::string& name) const {
        std::string out;
        struct stat st;
        for (const char* suffix : {"", ".tcache", ".tcmap"})
            if (stat((cacheDir.path() + "/" + name + suffix).c_str(), &st) == 0)
                out += name + suffix + " ";
        return out;
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
    ASSERT_EQ("c.bin ", onDisk("c.bin"));
    stat((cacheDir.path() + "/c.bin").c_str(), &st);
    EXPECT_EQ("1400000000 " + std::to_string(data.size()),
              std::to_string(st.st_mtime) + " " + std::to_string(st.st_size));
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
        std::unique_ptr<stream::InputStream> in = open(c.get(), "r.bin");
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
    EXPECT_EQ("r.bin.tcache r.bin.tcmap ", onDisk("r.bin"));

    cache = new vfs::CacheFileSystem(cacheDir.path().c_str(), fs.get());
    EXPECT_TRUE(data == readThrough(cache.get(), "r.bin"));
    // The map was saved at 4 MiB: the rest comes in one ranged request.
    const unsigned saved = vfs::SharedCacheInfo::MAP_SAVE_INTERVAL;
    std::string ranged;
    for (const std::string& line : logFor("/root/r.bin"))
        if (line.find("\"bytes=") != std::string::npos)
            ranged += line + "\n";
    EXPECT_EQ("GET /root/r.bin \"bytes=" + std::to_string(saved) + "-" + std::to_string(size - 1) +
                  "\" 206 " + std::to_string(size - saved) + "\n",
              ranged);
    EXPECT_EQ("r.bin ", onDisk("r.bin"));
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
