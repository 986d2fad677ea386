// The cache under faults: failing sources, data files that cannot be made,
// unknown sizes read concurrently, files past 2 GiB, and wrappers outliving
// the cache (faults that need a POSIX process are in cachefaults_posix.cpp).
// Whatever fails, no read may return wrong bytes and nothing on disk may
// claim bytes it lacks.
#include "CacheFixture.h"
#include <fstream>
#include <random>
#include <thread>
#include <tmain/stream/IOException.h>

using namespace tarso;
using platform::FileOperations;
using tmaintest::CacheFixture;
using tmaintest::readRange;

namespace {

TEST_F(CacheFixture, SourceFailuresNeverYieldWrongBytes) {
    // A read-ahead whose source fails after delivering part of a buffer must
    // not leave the new bytes claiming the old range.
    addSource("f.bin", 200000, 21);
    const std::string& want = content["f.bin"];
    std::unique_ptr<stream::InputStream> in = openStream("f.bin");
    std::string buf(1000, '\0');
    ASSERT_EQ(1000u, in->read(&buf[0], 1, 1000)); // buffer holds [0, 4096)
    source->maxChunk = 512;
    source->failEvery = 3; // the third read from now fails, after 1024 bytes
    source->reads = 0;
    in->seek(100000, stream::Stream::SM_BEGIN);
    EXPECT_THROW(in->read(&buf[0], 1, 1000), stream::IOException);
    EXPECT_EQ(100000u, in->tell());
    EXPECT_EQ(4096u + 1024u, cachedMap().getCachedSize()); // what arrived before the failure is kept
    source->failEvery = 0;
    for (unsigned at : {0, 1000, 100000}) {
        if (at != 1000) // the middle read goes on from the first
            in->seek(at, stream::Stream::SM_BEGIN);
        EXPECT_EQ(want.substr(at, 1000), buf.substr(0, in->read(&buf[0], 1, 1000))) << at;
    }
    EXPECT_EQ(1u, source->maxFetches("f.bin"));
    in.reset();
    file = nullptr;

    // Eight threads, small and large reads, short source reads, every 7th failing.
    makeCache(8192, 3);
    for (int i = 0; i < 4; ++i)
        addSource("t" + std::to_string(i), 120000 + 999 * i, 30 + i);
    source->maxChunk = 3000;
    source->failEvery = 7;
    std::atomic<int> wrong{0}, failed{0};
    tmaintest::onThreads(8, [&](int t) {
        std::mt19937 rng(200 + t);
        for (int i = 0; i < 60; ++i) {
            std::string path = "t" + std::to_string((t + i) % 4);
            const std::string& w = content.at(path);
            unsigned off = rng() % w.size(), n = 1 + rng() % (i % 2 ? 300 : 30000);
            try {
                wrong += readRange(cache.get(), path.c_str(), off, n) != w.substr(off, n);
            } catch (const stream::IOException&) {
                ++failed;
            }
        }
    });
    EXPECT_EQ(0, wrong.load());
    EXPECT_LT(0, failed.load());
    source->failEvery = 0;
    for (int i = 0; i < 4; ++i) {
        std::string path = "t" + std::to_string(i);
        EXPECT_EQ(content[path], readAll(path));
        EXPECT_EQ(1u, source->maxFetches(path)) << path; // failures lose nothing that arrived
    }
}

TEST_F(CacheFixture, DataFileThatCannotBeMadeFailsCleanly) {
    addSource("d/x.bin", 50000, 22);
    FileOperations::ensurePath(local("d/x.bin.tcache/inside").c_str());
    EXPECT_THROW(cache->lookup("d/x.bin"), stream::IOException);
    EXPECT_THROW(cache->lookup("d/x.bin"), stream::IOException); // the slot came back
    EXPECT_EQ(0u, cache->getOpenFileCount());
    FileOperations::remove(local("d/x.bin.tcache").c_str(), FileOperations::REMOVE_RECURSIVE);
    EXPECT_EQ(content["d/x.bin"], readAll("d/x.bin"));
}

TEST_F(CacheFixture, UnknownSizeConcurrentLookupsNeverShort) {
    addSource("u.bin", 4 << 20, 26);
    source->unknownSize = true;
    const std::string want = content["u.bin"];
    std::atomic<int> bad{0};
    tmaintest::onThreads(8, [&](int) {
        for (int round = 0; round < 10; ++round)
            bad += readAll("u.bin") != want;
    });
    EXPECT_EQ(0, bad.load());
    EXPECT_FALSE(onDisk("u.bin.tcache.part"));
    // Leftovers of an interrupted copy and map save are cleaned up.
    tmaintest::writeFile(local("u.bin.tcache.part"), "partial");
    tmaintest::writeFile(local("v.bin.tcmap.tmp"), "partial");
    bool abort = false;
    cache->cleanUpCache(abort);
    EXPECT_FALSE(onDisk("u.bin.tcache.part") || onDisk("v.bin.tcmap.tmp"));
    EXPECT_TRUE(onDisk("u.bin"));
}

TEST_F(CacheFixture, FilesPast2GiB) {
    // A sparse source of 4 GiB - 1 with data at 2.5 GiB and at its very end.
    const unsigned size = 0xFFFFFFFFu, mid = 0xA0000000u;
    std::string abs = srcRoot + "/sparse.bin";
    std::string a = tmaintest::randomBytes(100000, 27), b = tmaintest::randomBytes(300, 28);
    {
        std::ofstream f(abs, std::ios::binary);
        f.seekp((std::streamoff)mid).write(a.data(), (std::streamsize)a.size());
        f.seekp((std::streamoff)size - 300).write(b.data(), (std::streamsize)b.size());
        f.close();
        ASSERT_FALSE(f.fail());
    }
    EXPECT_EQ(a, readRange(cache.get(), "sparse.bin", mid, 100000));                    // direct fetch
    EXPECT_EQ(a.substr(5, 100), readRange(cache.get(), "sparse.bin", mid + 5, 100));    // cached
    EXPECT_EQ(b.substr(0, 200), readRange(cache.get(), "sparse.bin", size - 300, 200)); // read-ahead
    EXPECT_EQ(b, readRange(cache.get(), "sparse.bin", size - 300, 1000));
    EXPECT_EQ(std::string(50, '\0'), readRange(cache.get(), "sparse.bin", mid - 50, 50));
    // The map kept the high offsets exactly; the last small read merged with the range after it.
    file = cache->lookup("sparse.bin");
    std::vector<std::pair<unsigned, unsigned>> entries;
    for (const vfs::CacheMapEntry& e : cachedMap().getEntries())
        entries.emplace_back(e.mStart, e.mSize);
    EXPECT_EQ((std::vector<std::pair<unsigned, unsigned>>{{mid - 50, 100050}, {size - 300, 300}}), entries);
}

TEST_F(CacheFixture, WrapperOutlivingTheCacheAndFailedCompletion) {
    addSource("w.bin", 20000, 29);
    readAll("w.bin");
    ::core::SmartPtr<vfs::File> held(cache->lookup("w.bin"));
    {
        tmaintest::ScopedLogCapture log;
        cache = nullptr;
        EXPECT_TRUE(log->contains("1 local file requests leaked!"));
    }
    EXPECT_EQ(content["w.bin"], tmaintest::readFile(held->getAbsolutePath()));
    held = nullptr; // must not call into the destroyed cache

    // A completion whose rename fails keeps the partial file resumable.
    makeCache();
    addSource("r.bin", 30000, 30);
    {
        tmaintest::ScopedLogCapture log;
        std::unique_ptr<stream::InputStream> in = openStream("r.bin");
        std::string all(30000, '\0');
        ASSERT_EQ(1000u, in->read(&all[0], 1, 1000));
        FileOperations::ensurePath(local("r.bin/blocker").c_str()); // the completed name is taken
        ASSERT_EQ(29000u, in->read(&all[1000], 1, 29000));
        EXPECT_EQ(content["r.bin"], all);
        EXPECT_TRUE(log->contains("Unable to rename cached file from"));
        in.reset();
        file = nullptr;
    }
    EXPECT_TRUE(onDisk("r.bin.tcache") && onDisk("r.bin.tcmap"));
    FileOperations::remove(local("r.bin").c_str(), FileOperations::REMOVE_RECURSIVE);
    unsigned long long before = source->fetched;
    EXPECT_EQ(content["r.bin"], readAll("r.bin"));
    EXPECT_EQ(before, source->fetched.load());
    EXPECT_TRUE(onDisk("r.bin") && !onDisk("r.bin.tcache") && !onDisk("r.bin.tcmap"));
}

} // namespace
