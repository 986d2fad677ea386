// Cache file system over a local source that counts and fails on demand:
// on-disk layout, exact bytes, fetch-once, concurrency, faults, policies and
// maintenance.
#include "../support/TestSupport.h"
#include "CacheFixture.h"
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <tmain/platform/FileOperations.h>
#include <tmain/vfs/CacheFile.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/CacheMap.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/FileWrapper.h>
#include <tmain/vfs/SharedCacheInfo.h>

using namespace tarso;
using platform::FileOperations;
using tmaintest::SourceFileSystem;
using vfs::CacheFileSystem;
typedef CacheFileSystem::CachePolicy Policy;

namespace {

using tmaintest::CacheFixture;
using tmaintest::readRange;

TEST_F(CacheFixture, PartialThenCompleteLayoutOnDisk) {
    addSource("tex/a.png", 100000, 1, 1500000123);
    {
        std::unique_ptr<stream::InputStream> in = openStream("tex/a.png");
        ASSERT_NE(nullptr, dynamic_cast<vfs::CacheFile*>(file.get()));
        EXPECT_EQ(100000u, file->getSize());
        in->seek(5000, stream::Stream::SM_BEGIN);
        char buf[100];
        EXPECT_EQ(content["tex/a.png"].substr(5000, 100), std::string(buf, in->read(buf, 1, 100)));
        file = nullptr;
    }
    // Released with a range missing: full-size data file, its map, a marker.
    EXPECT_EQ(100000, FileOperations::getSize(local("tex/a.png.tcache").c_str()));
    EXPECT_EQ("tex/.cdata/a.png tex/a.png.tcmap ",
              present({"tex/a.png", "tex/.cdata/a.png", "tex/a.png.tcmap"}));
    // The map: versions, type name, one entry of one whole buffer read ahead (5000, 4096).
    EXPECT_EQ(std::string("\2\0\0\0\2\0\0\0\x14\0\0\0"
                          "tarso::vfs::CacheMap\1\0\0\0\x88\x13\0\0\0\x10\0\0",
                          44),
              tmaintest::readFile(local("tex/a.png.tcmap")));
    EXPECT_EQ(4096u, source->fetched.load());
    EXPECT_EQ(content["tex/a.png"].substr(5000, 4096),
              tmaintest::readFile(local("tex/a.png.tcache")).substr(5000, 4096));

    // Everything read: renamed, map gone, the source's time on the file.
    EXPECT_EQ(content["tex/a.png"], readAll("tex/a.png"));
    EXPECT_EQ("tex/a.png ", present({"tex/a.png", "tex/a.png.tcache", "tex/a.png.tcmap"}));
    EXPECT_EQ(1500000123, FileOperations::getLastModTime(local("tex/a.png").c_str()));
    EXPECT_EQ(1u, source->maxFetches("tex/a.png"));

    // Later lookups are served from disk as wrapped local files, with no check due yet.
    int lookups = source->lookups;
    ::core::SmartPtr<vfs::File> again(cache->lookup("tex/a.png"));
    EXPECT_NE(nullptr, dynamic_cast<vfs::FileWrapper*>(again.get()));
    EXPECT_EQ(lookups, source->lookups.load());
    EXPECT_EQ(local("tex/a.png"), again->getAbsolutePath());
}

TEST_F(CacheFixture, RandomReadsReturnSourceBytesAndFetchEachByteOnce) {
    addSource("big.bin", 300000, 2);
    const std::string& want = content["big.bin"];
    std::mt19937 rng(3);
    std::unique_ptr<stream::InputStream> in = openStream("big.bin");
    std::vector<char> buf(20000);
    for (int i = 0; i < 400; ++i) {
        unsigned off = rng() % 300000, n = 1 + rng() % (i % 3 ? 200 : 20000);
        in->seek((int)off, stream::Stream::SM_BEGIN);
        unsigned got = in->read(buf.data(), 1, n);
        ASSERT_EQ(std::min<unsigned>(n, 300000 - off), got);
        ASSERT_EQ(0, memcmp(buf.data(), want.data() + off, got)) << "offset " << off;
        EXPECT_EQ(off + got, in->tell());
    }
    // Starts in a cached range and runs through uncached ones.
    in->seek(0, stream::Stream::SM_BEGIN);
    std::string all(300000, '\0');
    ASSERT_EQ(300000u, in->read(&all[0], 1, 300000));
    EXPECT_EQ(want, all);
    EXPECT_EQ(0u, in->read(buf.data(), 1, 10));
    EXPECT_TRUE(in->eof());
    EXPECT_EQ(1u, source->maxFetches("big.bin"));
    EXPECT_EQ(300000u, cachedMap().getCachedSize());
}

TEST_F(CacheFixture, EightThreadsOverlappingRangesMoreFilesThanSlots) {
    makeCache(8192, 2);
    for (int i = 0; i < 5; ++i)
        addSource("f" + std::to_string(i), 150000 + i * 1000, 10 + i);
    std::atomic<int> bad{0};
    tmaintest::onThreads(8, [&](int t) {
        std::mt19937 rng(100 + t);
        for (int i = 0; i < 40; ++i) {
            std::string path = "f" + std::to_string((t + i) % 5);
            const std::string& want = content.at(path);
            unsigned off = rng() % want.size(), n = 1 + rng() % 30000;
            bad += readRange(cache.get(), path.c_str(), off, n) != want.substr(off, n);
        }
    });
    EXPECT_EQ(0, bad.load());
    EXPECT_EQ(0u, cache->getOpenFileCount());
    for (int i = 0; i < 5; ++i) {
        std::string path = "f" + std::to_string(i);
        EXPECT_EQ(1u, source->maxFetches(path)) << path;
        EXPECT_EQ(content[path], readAll(path));
    }
}

TEST_F(CacheFixture, DestroyedMidTransferResumesFromTheMap) {
    addSource("res.bin", 200000, 5);
    EXPECT_EQ(content["res.bin"].substr(0, 70000), readRange(cache.get(), "res.bin", 0, 70000));
    // A file still alive when the cache goes: its state is saved, it is cut loose.
    ::core::SmartPtr<vfs::File> alive(cache->lookup("res.bin"));
    {
        tmaintest::ScopedLogCapture log;
        cache = nullptr;
        EXPECT_TRUE(log->contains("CacheFileSystem leak: 'res.bin'"));
    }
    alive = nullptr;
    ASSERT_TRUE(onDisk("res.bin.tcmap"));
    unsigned long long before = source->fetched;
    makeCache();
    EXPECT_EQ(content["res.bin"], readAll("res.bin"));
    EXPECT_EQ(200000u - 70000u, source->fetched - before); // reads of a buffer or more fetch exactly
    EXPECT_EQ(1u, source->maxFetches("res.bin"));
    EXPECT_EQ("res.bin ", present({"res.bin", "res.bin.tcmap"}));
}

TEST_F(CacheFixture, StaleMapAndWrongSizedDataFileAreDiscarded) {
    // Poisoned data files: under a map whose time is not the source's (stale),
    // or of the wrong size. Nothing of the poisoned bytes may be used.
    for (bool stale : {true, false}) {
        std::string p = stale ? "s.bin" : "w.bin";
        addSource(p, 30000, stale ? 6 : 7);
        readRange(cache.get(), p.c_str(), 0, 5000);
        ASSERT_TRUE(onDisk(p + ".tcmap"));
        tmaintest::writeFile(local(p + ".tcache"), std::string(stale ? 30000 : 777, 'X'));
        if (stale)
            FileOperations::setLastModTime(local(p + ".tcmap").c_str(), 12345);
        EXPECT_EQ(content[p], readAll(p));
        EXPECT_TRUE(onDisk(p));
    }
}

TEST_F(CacheFixture, RevalidationPoliciesAndUnreachableSource) {
    addSource("p.txt", 1000, 8, 1600000000);
    readAll("p.txt");
    std::string marker = local(".cdata/p.txt");
    ASSERT_TRUE(onDisk("p.txt") && FileOperations::exists(marker.c_str()));

    // Expired by age with the source unreachable: the cached copy is kept.
    FileOperations::setLastModTime(marker.c_str(), 1000);
    source->unreachable = true;
    {
        tmaintest::ScopedLogCapture log;
        EXPECT_EQ(content["p.txt"], readAll("p.txt"));
        EXPECT_TRUE(log->contains("Error retrieving source file 'p.txt'. Keeping locally cached data"));
    }
    source->unreachable = false;

    // Expired with a newer source: replaced and fetched anew.
    addSource("p.txt", 1200, 9, 1700000000);
    FileOperations::setLastModTime(marker.c_str(), 1000);
    EXPECT_EQ(content["p.txt"], readAll("p.txt"));
    EXPECT_EQ(1700000000, FileOperations::getLastModTime(local("p.txt").c_str()));

    // Negative expiration: checked once per session time only.
    cache->setPolicy("*.txt", Policy(-1, 0));
    cache->setPolicy("p.*", Policy::ALLWAYSEXPIRE); // later pattern: never chosen for p.txt
    EXPECT_JOINED("-1|0|86400|", cache->getPolicy("p.txt").getExpirationTime(),
                  cache->getPolicy("p.bin").getExpirationTime(),
                  cache->getPolicy("q.dat").getExpirationTime());
    int lookups = source->lookups;
    readRange(cache.get(), "p.txt", 0, 10);
    EXPECT_EQ(lookups, source->lookups.load());
    FileOperations::setLastModTime(marker.c_str(), 1000);
    cache->setSessionTime(2000);
    readRange(cache.get(), "p.txt", 0, 10);
    EXPECT_EQ(lookups + 1, source->lookups.load()); // marker older than the session
    readRange(cache.get(), "p.txt", 0, 10);
    EXPECT_EQ(lookups + 1, source->lookups.load()); // touched: not again
    EXPECT_TRUE(cache->removePolicy("*.txt") && !cache->hasPolicy("*.txt"));

    // Do-not-cache: the source's own file, nothing written.
    cache->setPolicy("nc/*", Policy(86400, Policy::FLAG_DONT_CACHE));
    addSource("nc/n.bin", 5000, 10);
    ::core::SmartPtr<vfs::File> nc(cache->lookup("nc/n.bin"));
    EXPECT_NE(nullptr, dynamic_cast<tmaintest::SourceFile*>(nc.get()));
    EXPECT_FALSE(onDisk("nc/n.bin.tcache"));

    // Gone from the source: the local copy is dropped and the lookup fails.
    FileOperations::setLastModTime(marker.c_str(), 1000);
    FileOperations::remove((srcRoot + "/p.txt").c_str(), 0);
    EXPECT_THROW(cache->lookup("p.txt"), vfs::FileNotFoundException);
    EXPECT_FALSE(onDisk("p.txt"));
    EXPECT_THROW(cache->lookup("missing"), vfs::FileNotFoundException);
}

TEST_F(CacheFixture, EmptySourceFileIsCopiedWholeAndLocalPathCompletes) {
    addSource("empty.dat", 0, 11);
    ::core::SmartPtr<vfs::File> e(cache->lookup("empty.dat"));
    EXPECT_NE(nullptr, dynamic_cast<vfs::FileWrapper*>(e.get()));
    EXPECT_TRUE(onDisk("empty.dat"));

    addSource("lp.bin", 40000, 12, 1555555555);
    ::core::SmartPtr<vfs::File> f(cache->lookup("lp.bin"));
    std::string path = f->getLocalPath();
    EXPECT_EQ(local("lp.bin"), path);
    EXPECT_EQ(content["lp.bin"], tmaintest::readFile(path));
    EXPECT_EQ(1555555555, FileOperations::getLastModTime(path.c_str()));
}

TEST_F(CacheFixture, MaintenanceSizeCleanUpInvalidateClear) {
    addSource("m/a.bin", 10000, 13);
    addSource("m/b.bin", 20000, 14);
    addSource("m/c.txt", 3000, 15);
    readAll("m/a.bin");
    readRange(cache.get(), "m/b.bin", 0, 100); // partial
    readAll("m/c.txt");
    auto mapSize = [&] { return FileOperations::getSize(local("m/b.bin.tcmap").c_str()); };
    EXPECT_EQ(10000u + 20000 + 3000 + mapSize(), cache->getCacheSize());
    bool abort = false;
    EXPECT_EQ(20000u, cache->cleanUpCache(abort));
    EXPECT_EQ(1u, cache->invalidate("m/*.txt"));
    EXPECT_EQ("m/a.bin ",
              present({"m/a.bin", "m/b.bin.tcache", "m/b.bin.tcmap", "m/c.txt", "m/.cdata/c.txt"}));
    // A file in use survives clearing.
    ::core::SmartPtr<vfs::File> held(cache->lookup("m/a.bin"));
    readRange(cache.get(), "m/b.bin", 0, 100);
    unsigned long long partial = 20000u + mapSize(); // measured before clearing removes the map
    EXPECT_EQ(partial, cache->clearCache(abort));
    EXPECT_EQ("m/a.bin ", present({"m/a.bin", "m/b.bin.tcache"}));
    held = nullptr;
    EXPECT_EQ(10000u, cache->clearCache(abort));
    EXPECT_EQ(0u, cache->getCacheSize());
}

} // namespace
