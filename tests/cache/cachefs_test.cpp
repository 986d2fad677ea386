// Cache file system over a local source that counts, fails and stalls on
// demand: on-disk layout, exact bytes, fetch-once, concurrency, faults,
// policies and maintenance.
#include "../support/TestSupport.h"
#include "SourceFileSystem.h"
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <tmain/core/Serializer.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileInputStream.h>
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

struct CacheFixture : ::testing::Test {
    tmaintest::TempDir dir;
    std::string srcRoot, cacheRoot;
    ::core::SmartPtr<SourceFileSystem> source;
    ::core::SmartPtr<CacheFileSystem> cache;
    std::map<std::string, std::string> content;

    void SetUp() override {
        srcRoot = dir.file("src");
        cacheRoot = dir.file("cache");
        FileOperations::ensurePath((srcRoot + "/x").c_str());
        source = new SourceFileSystem(srcRoot);
        makeCache();
    }
    void makeCache(unsigned buffer = 4096, unsigned slots = 16, Policy policy = Policy::DEFAULT) {
        cache = nullptr;
        cache = new CacheFileSystem(cacheRoot.c_str(), source.get(), policy, buffer, slots);
    }
    void addSource(const std::string& path, size_t size, unsigned seed, __int64 mtime = 1500000000) {
        content[path] = tmaintest::randomBytes(size, seed);
        std::string abs = srcRoot + "/" + path;
        FileOperations::ensurePath(abs.c_str());
        tmaintest::writeFile(abs, content[path]);
        FileOperations::setLastModTime(abs.c_str(), mtime);
    }
    std::string local(const std::string& rel) { return cacheRoot + "/" + rel; }
    bool onDisk(const std::string& rel) { return FileOperations::exists(local(rel).c_str()); }
};

// Reads [offset, offset+n) through a fresh stream of a freshly looked-up file.
std::string readRange(vfs::FileSystem* fs, const char* path, unsigned offset, unsigned n) {
    ::core::SmartPtr<vfs::File> f(fs->lookup(path));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    in->seek((int)offset, stream::Stream::SM_BEGIN);
    std::string out(n, '\0');
    unsigned got = 0;
    while (got < n) {
        unsigned k = in->read(&out[got], 1, n - got);
        if (k == 0)
            break;
        got += k;
    }
    out.resize(got);
    return out;
}

vfs::CacheMap readMap(const std::string& abs) {
    stream::FileInputStream in(abs.c_str());
    in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    tarso::core::Serializer s(nullptr);
    vfs::CacheMap m;
    m.deserialize(&in, &s);
    return m;
}

TEST_F(CacheFixture, PartialThenCompleteLayoutOnDisk) {
    addSource("tex/a.png", 100000, 1, 1500000123);
    {
        ::core::SmartPtr<vfs::File> f(cache->lookup("tex/a.png"));
        ASSERT_NE(nullptr, dynamic_cast<vfs::CacheFile*>(f.get()));
        EXPECT_EQ(100000u, f->getSize());
        std::unique_ptr<stream::InputStream> in(f->getInputStream());
        in->open(stream::Stream::OM_READ);
        in->seek(5000, stream::Stream::SM_BEGIN);
        char buf[100];
        ASSERT_EQ(100u, in->read(buf, 1, 100));
        EXPECT_EQ(content["tex/a.png"].substr(5000, 100), std::string(buf, 100));
    }
    // Released with a range missing: full-size data file, its map, a marker.
    EXPECT_EQ(100000, FileOperations::getSize(local("tex/a.png.tcache").c_str()));
    ASSERT_TRUE(onDisk("tex/a.png.tcmap"));
    EXPECT_FALSE(onDisk("tex/a.png"));
    EXPECT_TRUE(onDisk("tex/.cdata/a.png"));
    vfs::CacheMap m = readMap(local("tex/a.png.tcmap"));
    ASSERT_EQ(1u, m.getEntries().size());
    EXPECT_EQ(5000u, m.getEntries().front().mStart);
    EXPECT_EQ(4096u, m.getEntries().front().mSize); // one whole buffer read ahead
    EXPECT_EQ(4096u, source->fetched.load());
    EXPECT_EQ(content["tex/a.png"].substr(5000, 4096),
              tmaintest::readFile(local("tex/a.png.tcache")).substr(5000, 4096));

    // Everything read: renamed, map gone, the source's time on the file.
    EXPECT_EQ(content["tex/a.png"], readRange(cache.get(), "tex/a.png", 0, 100000));
    EXPECT_TRUE(onDisk("tex/a.png"));
    EXPECT_FALSE(onDisk("tex/a.png.tcache"));
    EXPECT_FALSE(onDisk("tex/a.png.tcmap"));
    EXPECT_EQ(1500000123, FileOperations::getLastModTime(local("tex/a.png").c_str()));
    EXPECT_EQ(100000u, source->fetched.load());
    EXPECT_EQ(1u, source->maxFetches("tex/a.png"));

    // Later lookups are served from disk as wrapped local files.
    int lookups = source->lookups;
    ::core::SmartPtr<vfs::File> again(cache->lookup("tex/a.png"));
    EXPECT_NE(nullptr, dynamic_cast<vfs::FileWrapper*>(again.get()));
    EXPECT_EQ(lookups, source->lookups.load()); // no check due yet
    EXPECT_EQ(local("tex/a.png"), again->getAbsolutePath());
}

TEST_F(CacheFixture, RandomReadsReturnSourceBytesAndFetchEachByteOnce) {
    addSource("big.bin", 300000, 2);
    const std::string& want = content["big.bin"];
    std::mt19937 rng(3);
    ::core::SmartPtr<vfs::File> f(cache->lookup("big.bin"));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ);
    std::vector<char> buf(20000);
    for (int i = 0; i < 400; ++i) {
        unsigned off = rng() % 300000, n = 1 + rng() % (i % 3 ? 200 : 20000);
        in->seek((int)off, stream::Stream::SM_BEGIN);
        unsigned got = in->read(buf.data(), 1, n);
        ASSERT_EQ(std::min<unsigned>(n, 300000 - off), got);
        ASSERT_EQ(0, memcmp(buf.data(), want.data() + off, got)) << "offset " << off;
        EXPECT_EQ(off + got, in->tell());
    }
    // A read that starts in a cached range and ends outside it.
    in->seek(0, stream::Stream::SM_BEGIN);
    std::string all(300000, '\0');
    ASSERT_EQ(300000u, in->read(&all[0], 1, 300000));
    EXPECT_EQ(want, all);
    EXPECT_EQ(0u, in->read(buf.data(), 1, 10));
    EXPECT_TRUE(in->eof());
    EXPECT_EQ(1u, source->maxFetches("big.bin"));
    EXPECT_EQ(300000u, source->fetched.load());
    ASSERT_NE(nullptr, static_cast<vfs::CacheFile*>(f.get())->getCacheInfo());
    EXPECT_EQ(300000u, static_cast<vfs::CacheFile*>(f.get())->getCacheInfo()->getMap().getCachedSize());
}

TEST_F(CacheFixture, EightThreadsOverlappingRangesMoreFilesThanSlots) {
    makeCache(8192, 2);
    for (int i = 0; i < 5; ++i)
        addSource("f" + std::to_string(i), 150000 + i * 1000, 10 + i);
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            std::mt19937 rng(100 + t);
            for (int i = 0; i < 40; ++i) {
                std::string path = "f" + std::to_string((t + i) % 5);
                const std::string& want = content[path];
                unsigned off = rng() % want.size(), n = 1 + rng() % 30000;
                std::string got = readRange(cache.get(), path.c_str(), off, n);
                if (got != want.substr(off, n))
                    ++bad;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(0, bad.load());
    EXPECT_EQ(0u, cache->getOpenFileCount());
    for (int i = 0; i < 5; ++i) {
        std::string path = "f" + std::to_string(i);
        EXPECT_EQ(1u, source->maxFetches(path)) << path;
        EXPECT_EQ(content[path], readRange(cache.get(), path.c_str(), 0, (unsigned)content[path].size()));
    }
    EXPECT_EQ(1u, source->maxFetches("f0"));
}

TEST_F(CacheFixture, SourceFailingMidReadRecordsOnlyWrittenBytes) {
    addSource("fail.bin", 50000, 4);
    ::core::SmartPtr<vfs::File> f(cache->lookup("fail.bin"));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ);
    std::string buf(50000, '\0');
    ASSERT_EQ(8192u, in->read(&buf[0], 1, 8192));
    source->failAfter = 0;
    EXPECT_THROW(in->read(&buf[0], 1, 10000), stream::IOException);
    auto* info = static_cast<vfs::CacheFile*>(f.get())->getCacheInfo();
    EXPECT_EQ(8192u, info->getMap().getCachedSize());
    in->seek(0, stream::Stream::SM_BEGIN);
    ASSERT_EQ(50000u, in->read(&buf[0], 1, 50000));
    EXPECT_EQ(content["fail.bin"], buf);
    EXPECT_EQ(1u, source->maxFetches("fail.bin"));
}

TEST_F(CacheFixture, DestroyedMidTransferResumesFromTheMap) {
    addSource("res.bin", 200000, 5);
    std::string part = readRange(cache.get(), "res.bin", 0, 70000);
    EXPECT_EQ(content["res.bin"].substr(0, 70000), part);
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
    EXPECT_EQ(content["res.bin"], readRange(cache.get(), "res.bin", 0, 200000));
    EXPECT_EQ(200000u - 70000u, source->fetched - before); // reads of a buffer or more fetch exactly
    EXPECT_EQ(1u, source->maxFetches("res.bin"));
    EXPECT_TRUE(onDisk("res.bin"));
}

TEST_F(CacheFixture, StaleMapAndWrongSizedDataFileAreDiscarded) {
    addSource("s.bin", 30000, 6);
    readRange(cache.get(), "s.bin", 0, 5000);
    ASSERT_TRUE(onDisk("s.bin.tcmap"));
    // Poison the data file; the map was saved with the source's time, so a
    // changed time marks it stale and nothing of the poisoned bytes is used.
    tmaintest::writeFile(local("s.bin.tcache"), std::string(30000, 'X'));
    FileOperations::setLastModTime(local("s.bin.tcmap").c_str(), 12345);
    EXPECT_EQ(content["s.bin"], readRange(cache.get(), "s.bin", 0, 30000));

    addSource("w.bin", 30000, 7);
    readRange(cache.get(), "w.bin", 0, 5000);
    tmaintest::writeFile(local("w.bin.tcache"), std::string(777, 'X'));
    EXPECT_EQ(content["w.bin"], readRange(cache.get(), "w.bin", 0, 30000));
    EXPECT_TRUE(onDisk("w.bin"));
}

TEST_F(CacheFixture, RevalidationPoliciesAndUnreachableSource) {
    addSource("p.txt", 1000, 8, 1600000000);
    readRange(cache.get(), "p.txt", 0, 1000);
    ASSERT_TRUE(onDisk("p.txt"));
    std::string marker = local(".cdata/p.txt");
    ASSERT_TRUE(FileOperations::exists(marker.c_str()));

    // Expired by age with the source unreachable: the cached copy is kept.
    FileOperations::setLastModTime(marker.c_str(), 1000);
    source->unreachable = true;
    {
        tmaintest::ScopedLogCapture log;
        EXPECT_EQ(content["p.txt"], readRange(cache.get(), "p.txt", 0, 1000));
        EXPECT_TRUE(log->contains("Error retrieving source file 'p.txt'. Keeping locally cached data"));
    }
    source->unreachable = false;

    // Expired with a newer source: replaced and fetched anew.
    addSource("p.txt", 1200, 9, 1700000000);
    FileOperations::setLastModTime(marker.c_str(), 1000);
    EXPECT_EQ(content["p.txt"], readRange(cache.get(), "p.txt", 0, 1200));
    EXPECT_EQ(1700000000, FileOperations::getLastModTime(local("p.txt").c_str()));

    // Negative expiration: checked once per session time only.
    cache->setPolicy("*.txt", Policy(-1, 0));
    cache->setPolicy("p.*", Policy::ALLWAYSEXPIRE); // later pattern: never chosen for p.txt
    EXPECT_EQ(-1, cache->getPolicy("p.txt").getExpirationTime());
    EXPECT_EQ(0, cache->getPolicy("p.bin").getExpirationTime());
    EXPECT_EQ(86400, cache->getPolicy("q.dat").getExpirationTime());
    int lookups = source->lookups;
    readRange(cache.get(), "p.txt", 0, 10);
    EXPECT_EQ(lookups, source->lookups.load());
    FileOperations::setLastModTime(marker.c_str(), 1000);
    cache->setSessionTime(2000);
    readRange(cache.get(), "p.txt", 0, 10);
    EXPECT_EQ(lookups + 1, source->lookups.load()); // marker older than the session
    readRange(cache.get(), "p.txt", 0, 10);
    EXPECT_EQ(lookups + 1, source->lookups.load()); // touched: not again
    EXPECT_TRUE(cache->removePolicy("*.txt"));
    EXPECT_FALSE(cache->hasPolicy("*.txt"));

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
    readRange(cache.get(), "m/a.bin", 0, 10000); // complete
    readRange(cache.get(), "m/b.bin", 0, 100);   // partial
    readRange(cache.get(), "m/c.txt", 0, 3000);  // complete
    EXPECT_EQ(10000u + 20000 + 3000 + FileOperations::getSize(local("m/b.bin.tcmap").c_str()),
              cache->getCacheSize());
    bool abort = false;
    EXPECT_EQ(20000u, cache->cleanUpCache(abort));
    EXPECT_FALSE(onDisk("m/b.bin.tcache"));
    EXPECT_FALSE(onDisk("m/b.bin.tcmap"));
    EXPECT_EQ(1u, cache->invalidate("m/*.txt"));
    EXPECT_FALSE(onDisk("m/c.txt"));
    EXPECT_FALSE(onDisk("m/.cdata/c.txt"));
    EXPECT_TRUE(onDisk("m/a.bin"));
    // A file in use survives clearing.
    ::core::SmartPtr<vfs::File> held(cache->lookup("m/a.bin"));
    readRange(cache.get(), "m/b.bin", 0, 100);
    unsigned long long mapSize = FileOperations::getSize(local("m/b.bin.tcmap").c_str());
    EXPECT_EQ(20000u + mapSize, cache->clearCache(abort));
    EXPECT_TRUE(onDisk("m/a.bin"));
    EXPECT_FALSE(onDisk("m/b.bin.tcache"));
    held = nullptr;
    EXPECT_EQ(10000u, cache->clearCache(abort));
    EXPECT_EQ(0u, cache->getCacheSize());
}

} // namespace
