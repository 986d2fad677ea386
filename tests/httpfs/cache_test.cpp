// The cache file system in front of the HTTP file system, against nginx:
// what goes over the wire, what lands on disk, and threads sharing one cache.
#include "HttpfsFixture.h"
#include <random>
#include <sys/stat.h>
#include <thread>
#include <tmain/stream/IOException.h>

using namespace tarso;
using tmaintest::HttpCache;

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
