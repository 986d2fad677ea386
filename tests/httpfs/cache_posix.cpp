// A reader of the cache killed mid-transfer (a forked process) and the next
// reader resuming where the saved map ends.
#include "HttpfsFixture.h"
#include <csignal>
#include <sys/wait.h>
#include <tmain/vfs/SharedCacheInfo.h>
#include <unistd.h>

using namespace tarso;
using tmaintest::HttpCache;

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
