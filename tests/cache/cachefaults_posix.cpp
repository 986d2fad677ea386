// The cache under faults that need a POSIX process: a file size limit
// (setrlimit), a full tmpfs in a private mount namespace, and a process that
// dies mid-transfer (fork). Whatever fails, no read may return wrong bytes
// and nothing on disk may claim bytes it lacks.
#include "CacheFixture.h"
#include <csignal>
#include <functional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
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

} // namespace
