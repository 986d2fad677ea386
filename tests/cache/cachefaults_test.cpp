// The cache under faults: failing sources, data files that cannot be made, a
// full disk (file size limit, small tmpfs), unknown sizes read concurrently,
// files past 2 GiB, and wrappers outliving the cache. Whatever fails, no
// read may return wrong bytes and nothing on disk may claim bytes it lacks.
#include "CacheFixture.h"
#include <csignal>
#include <functional>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <tmain/core/Serializer.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheMap.h>
#include <unistd.h>

using namespace tarso;
using platform::FileOperations;
using tmaintest::CacheFixture;
using tmaintest::readRange;

namespace {

// Runs `body` in a child process; its return value is the exit status.
int inChild(const std::function<int()>& body) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int rc = 99;
        try {
            rc = body();
        } catch (const ::core::Exception& e) {
            fprintf(stderr, "child: %s\n", e.getMessage());
        }
        fflush(nullptr);
        _exit(rc);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
// In a child: exit with the failing line when a check fails.
#define CHILD_CHECK(c)                                                                                       \
    do {                                                                                                     \
        if (!(c)) {                                                                                          \
            fprintf(stderr, "child check failed at line %d: %s\n", __LINE__, #c);                            \
            return 1;                                                                                        \
        }                                                                                                    \
    } while (0)

template <class F> std::string ioError(F f) {
    return tmaintest::messageOf<stream::IOException>(f);
}
void limitFileSize(rlim_t bytes) {
    struct rlimit rl;
    getrlimit(RLIMIT_FSIZE, &rl);
    rl.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &rl);
}

// Reads a whole file through the cache in `chunk` pieces; every piece that
// arrives must be the source's, every failure an IOException. Returns the
// number of failed pieces, or -1 on a wrong byte.
int readChecked(vfs::FileSystem* cache, const std::string& path, const std::string& want, unsigned chunk) {
    int failures = 0;
    for (unsigned off = 0; off < want.size(); off += chunk) {
        try {
            if (readRange(cache, path.c_str(), off, chunk) != want.substr(off, chunk))
                return -1;
        } catch (const stream::IOException&) {
            ++failures;
        }
    }
    return failures;
}

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

TEST_F(CacheFixture, FileSizeLimitNeverCorruptsTheCache) {
    addSource("big.bin", 1 << 20, 23);
    addSource("huge.bin", 1 << 20, 24);
    const std::string want = content["big.bin"];
    cache = nullptr; // the child makes its own
    int rc = inChild([&]() -> int {
        signal(SIGXFSZ, SIG_IGN);
        vfs::CacheFileSystem* c = makeCache(65536);
        // Pre-sizing a data file past the limit fails at lookup.
        limitFileSize(256 << 10);
        CHILD_CHECK(ioError([&] { ::core::SmartPtr<vfs::File>(c->lookup("huge.bin")); }) != "<no exception>");
        limitFileSize(RLIM_INFINITY);
        // Pre-sized first, then limited: ranges past 256 KiB cannot be stored.
        ::core::SmartPtr<vfs::File> f(c->lookup("big.bin"));
        CHILD_CHECK(readRange(c, "big.bin", 0, 100000) == want.substr(0, 100000));
        limitFileSize(256 << 10);
        CHILD_CHECK(ioError([&] {
                        readRange(c, "big.bin", 600000, 70000);
                    }).find("CacheInputStream::read::write local data") != std::string::npos);
        CHILD_CHECK(readChecked(c, "big.bin", want, 65536) >= 10); // all below 256 KiB arrive
        f = nullptr;                                               // the map is saved: below the limit
        std::string map1 = tmaintest::readFile(local("big.bin.tcmap"));
        CHILD_CHECK(map1.size() > 20);
        // A map save that fails keeps the previous map whole.
        limitFileSize(RLIM_INFINITY);
        f = c->lookup("big.bin");
        CHILD_CHECK(readRange(c, "big.bin", 700000, 70000) == want.substr(700000, 70000));
        limitFileSize(16);
        f = nullptr;
        CHILD_CHECK(tmaintest::readFile(local("big.bin.tcmap")) == map1);
        CHILD_CHECK(!FileOperations::exists(local("big.bin.tcmap.tmp").c_str()));
        return 0;
    });
    ASSERT_EQ(0, rc);

    // A fresh process: what the saved map claims is really there, the rest is fetched.
    vfs::CacheMap map;
    {
        stream::FileInputStream mapIn(local("big.bin.tcmap").c_str(), 4096);
        mapIn.open(stream::Stream::OM_READ);
        tarso::core::Serializer serializer(nullptr);
        map.deserialize(&mapIn, &serializer);
    }
    ASSERT_EQ(1u, map.getEntries().size());
    EXPECT_EQ(0u, map.getEntries().front().mStart);
    makeCache();
    EXPECT_EQ(want, readAll("big.bin"));
    EXPECT_EQ((1u << 20) - map.getCachedSize(), source->fetched.load());
    EXPECT_EQ(content["huge.bin"], readAll("huge.bin"));
    EXPECT_TRUE(onDisk("big.bin") && onDisk("huge.bin"));
}

TEST_F(CacheFixture, FullTmpfsNeverCorruptsTheCache) {
    addSource("a.bin", 4 << 20, 25);
    const std::string want = content["a.bin"];
    cache = nullptr;
    int rc = inChild([&]() -> int {
        // A private mount namespace: the small tmpfs vanishes with this process.
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            !FileOperations::ensurePath((cacheRoot + "/x").c_str()) ||
            mount("tmpfs", cacheRoot.c_str(), "tmpfs", 0, "size=1m") != 0)
            return 77;
        CHILD_CHECK(
            inChild([&] { return readChecked(makeCache(65536), "a.bin", want, 65536) > 0 ? 0 : 1; }) == 0);
        // Space freed; a fresh process completes the file from what was kept.
        CHILD_CHECK(mount("tmpfs", cacheRoot.c_str(), "tmpfs", MS_REMOUNT, "size=16m") == 0);
        return inChild([&]() -> int {
            CHILD_CHECK(readChecked(makeCache(65536), "a.bin", want, 65536) == 0);
            cache = nullptr;
            CHILD_CHECK(tmaintest::readFile(local("a.bin")) == want);
            return 0;
        });
    });
    if (rc == 77)
        GTEST_SKIP() << "no private mount namespace with a tmpfs here";
    EXPECT_EQ(0, rc);
}

TEST_F(CacheFixture, CrashMidTransferResumesFromTheSavedMap) {
    addSource("c.bin", 10 << 20, 31);
    const std::string want = content["c.bin"];
    cache = nullptr;
    const unsigned read = (19 << 20) / 2; // 9.5 MiB, then the process dies without any clean-up
    ASSERT_EQ(0, inChild([&]() -> int {
                  makeCache(65536);
                  std::unique_ptr<stream::InputStream> in = openStream("c.bin");
                  std::string got(read, '\0');
                  for (unsigned off = 0; off < read; off += 65536)
                      CHILD_CHECK(in->read(&got[off], 1, 65536) == 65536);
                  CHILD_CHECK(got == want.substr(0, read));
                  _exit(0);
              }));
    makeCache();
    EXPECT_EQ(want, readAll("c.bin"));
    // Saved after each 4 MiB stored: the first 8 MiB survive, the rest is fetched again.
    EXPECT_EQ(2u << 20, source->fetched.load());
    EXPECT_EQ(1u, source->maxFetches("c.bin"));
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
        FILE* f = fopen(abs.c_str(), "wb");
        ASSERT_NE(nullptr, f);
        ASSERT_EQ(0, fseeko(f, (off_t)mid, SEEK_SET));
        fwrite(a.data(), 1, a.size(), f);
        ASSERT_EQ(0, fseeko(f, (off_t)size - 300, SEEK_SET));
        fwrite(b.data(), 1, b.size(), f);
        ASSERT_EQ(0, fclose(f));
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
