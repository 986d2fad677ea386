// Cache file system throughput against the plain tools on the same machine:
//   first read through the cache (fetch + store) vs `cp` of the source file,
//   second read (served from the completed local file) vs `cat`,
//   bytes fetched from the source per byte of file, sequential and random.
// Usage: bench_cache [size-MiB]   (default 256)
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/SimpleFile.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <unistd.h>
#include <vector>

using namespace tarso;
using platform::FileOperations;
using Clock = std::chrono::steady_clock;

namespace {

std::atomic<unsigned long long> gFetched{0};

class CountingStream : public stream::FileInputStream {
public:
    explicit CountingStream(const char* p) : stream::FileInputStream(p, 1 << 16) {}
    using stream::InputStream::read;
    unsigned read(void* b, unsigned s, unsigned c) override {
        unsigned n = stream::FileInputStream::read(b, s, c);
        gFetched += n;
        return n;
    }
};
class CountingFile : public vfs::SimpleFile {
public:
    CountingFile(const char* p, vfs::FileSystem* o) : vfs::SimpleFile(p, o) {}
    stream::InputStream* getInputStream() override { return new CountingStream(getAbsolutePath()); }
};
class CountingSource : public vfs::SimpleFileSystem {
public:
    explicit CountingSource(const char* r) : vfs::SimpleFileSystem(r) {}
    using vfs::SimpleFileSystem::lookup;
    vfs::File* lookup(const char* path, vfs::LookupData* d) override {
        ::core::SmartPtr<vfs::File> probe(vfs::SimpleFileSystem::lookup(path, d));
        return new CountingFile(path, this);
    }
};

double seconds(Clock::time_point a) {
    return std::chrono::duration<double>(Clock::now() - a).count();
}

double run(const std::string& cmd) {
    auto t = Clock::now();
    if (system(cmd.c_str()) != 0) {
        fprintf(stderr, "command failed: %s\n", cmd.c_str());
        exit(1);
    }
    return seconds(t);
}

// Reads the whole file through the cache in `request`-byte reads.
unsigned long long readAll(vfs::FileSystem* fs, const char* path, unsigned request) {
    ::core::SmartPtr<vfs::File> f(fs->lookup(path));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    std::vector<char> buf(request);
    unsigned long long total = 0;
    unsigned n;
    while ((n = in->read(buf.data(), 1, request)) > 0)
        total += n;
    return total;
}

// What any user-space fetch has to do at least: read the source and write
// the copy through a 1 MiB buffer (cp itself may copy inside the kernel).
double plainCopy(const std::string& from, const std::string& to) {
    auto t = Clock::now();
    FILE* in = fopen(from.c_str(), "rb");
    FILE* out = fopen(to.c_str(), "wb");
    std::vector<char> buf(1 << 20);
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), in)) > 0)
        fwrite(buf.data(), 1, n, out);
    fclose(in);
    fclose(out);
    return seconds(t);
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

double best(const std::vector<double>& v) {
    return *std::min_element(v.begin(), v.end());
}

} // namespace

int main(int argc, char** argv) {
    unsigned mib = argc > 1 ? (unsigned)atoi(argv[1]) : 256;
    const unsigned long long size = (unsigned long long)mib << 20;
    char tmpl[] = "/tmp/tmain-bench-cache-XXXXXX";
    if (!mkdtemp(tmpl))
        return 1;
    std::string root = tmpl, src = root + "/src", cacheDir = root + "/cache";
    FileOperations::ensurePath((src + "/x").c_str());
    {
        std::mt19937 rng(1);
        FILE* f = fopen((src + "/asset.bin").c_str(), "wb");
        std::vector<unsigned> block(1 << 18);
        for (unsigned long long done = 0; done < size; done += block.size() * 4) {
            for (auto& w : block)
                w = rng();
            fwrite(block.data(), 4, block.size(), f);
        }
        fclose(f);
    }
    run("cat '" + src + "/asset.bin' > /dev/null"); // page cache warm for every contender

    ::core::SmartPtr<vfs::FileSystem> source(new CountingSource(src.c_str()));
    const int reps = 7;
    std::vector<double> first, cpTimes, second, catTimes, plainTimes;
    // Every contender starts from the same state: no outputs left, nothing dirty.
    auto prepare = [&] {
        FileOperations::remove(cacheDir.c_str(), FileOperations::REMOVE_RECURSIVE);
        run("rm -f '" + root + "/copy.bin'; sync");
    };
    for (int r = 0; r < reps; ++r) {
        prepare();
        cpTimes.push_back(run("cp '" + src + "/asset.bin' '" + root + "/copy.bin'"));
        prepare();
        plainTimes.push_back(plainCopy(src + "/asset.bin", root + "/copy.bin"));
        prepare();
        ::core::SmartPtr<vfs::CacheFileSystem> cache(new vfs::CacheFileSystem(
            cacheDir.c_str(), source.get(), vfs::CacheFileSystem::CachePolicy::DEFAULT, 1 << 18, 4));
        auto t = Clock::now();
        unsigned long long got = readAll(cache.get(), "asset.bin", 1 << 20);
        first.push_back(seconds(t));
        if (got != size)
            return 1;
        run("sync");
        t = Clock::now();
        readAll(cache.get(), "asset.bin", 1 << 20);
        second.push_back(seconds(t));
        catTimes.push_back(run("cat '" + cacheDir + "/asset.bin' > /dev/null"));
    }
    printf("file size: %u MiB, %d repetitions; median (best-of) seconds\n", mib, reps);
    printf("first read through cache: %.3f (%.3f)   cp: %.3f (%.3f)   ratio cache/cp: %.2f (best-of %.2f), "
           "target <= 1.5\n",
           median(first), best(first), median(cpTimes), best(cpTimes), median(first) / median(cpTimes),
           best(first) / best(cpTimes));
    printf("  fread/fwrite 1 MiB loop: %.3f (%.3f)   ratio cache/loop: %.2f (best-of %.2f)\n",
           median(plainTimes), best(plainTimes), median(first) / median(plainTimes),
           best(first) / best(plainTimes));
    printf("second read (local file): %.3f (%.3f)   cat: %.3f (%.3f)   ratio cache/cat: %.2f (best-of %.2f), "
           "target <= 1.1\n",
           median(second), best(second), median(catTimes), best(catTimes), median(second) / median(catTimes),
           best(second) / best(catTimes));

    // Fetch efficiency: sequential small reads, then random reads that cover the file.
    for (int pattern = 0; pattern < 2; ++pattern) {
        FileOperations::remove(cacheDir.c_str(), FileOperations::REMOVE_RECURSIVE);
        ::core::SmartPtr<vfs::CacheFileSystem> cache(new vfs::CacheFileSystem(
            cacheDir.c_str(), source.get(), vfs::CacheFileSystem::CachePolicy::DEFAULT, 1 << 16, 4));
        gFetched = 0;
        if (pattern == 0) {
            readAll(cache.get(), "asset.bin", 4096);
        } else {
            ::core::SmartPtr<vfs::File> f(cache->lookup("asset.bin"));
            std::unique_ptr<stream::InputStream> in(f->getInputStream());
            in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
            const unsigned chunk = 10000; // not a multiple of the buffer: ranges meet at odd places
            std::vector<unsigned> order((unsigned)((size + chunk - 1) / chunk));
            std::iota(order.begin(), order.end(), 0u);
            std::shuffle(order.begin(), order.end(), std::mt19937(5));
            std::vector<char> buf(chunk);
            for (unsigned c : order) {
                in->seek((int)(c * chunk), stream::Stream::SM_BEGIN);
                in->read(buf.data(), 1, chunk);
            }
        }
        printf("bytes fetched / file size, %s: %.4f\n",
               pattern == 0 ? "sequential 4 KiB reads" : "random 10000-byte reads covering the file",
               (double)gFetched / (double)size);
    }
    source = nullptr;
    FileOperations::remove(root.c_str(), FileOperations::REMOVE_RECURSIVE);
    return 0;
}
