// The cache in front of a web server, against curl and cat in the same run:
//   first read of a large file through CacheFileSystem over HTTPFileSystem
//   from nginx on loopback vs `curl -s -o FILE URL`,
//   second read (the completed local file) vs `cat` of it into the same sink,
//   bytes nginx sent (its access log) per byte of file, sequential reads.
// Runs alternate; medians are compared.
// Usage: bench_httpfs [size-MiB]   (default 256)
#include "../tools/LocalNginx.h"
#include "BenchTiming.h"
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/HTTPFileSystem.h>
#include <vector>

using namespace tarso;

namespace {

// Reads the whole file in 1 MiB pieces into a sink.
unsigned long long readAll(vfs::FileSystem* fs, const char* path) {
    ::core::SmartPtr<vfs::File> f(fs->lookup(path));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    std::vector<char> buf(1 << 20);
    unsigned long long total = 0;
    for (unsigned n; (n = in->read(buf.data(), 1, (unsigned)buf.size())) > 0;)
        total += n;
    return total;
}

} // namespace

int main(int argc, char** argv) {
    const unsigned mib = argc > 1 ? (unsigned)atoi(argv[1]) : 256;
    const unsigned long long size = (unsigned long long)mib << 20;
    const int reps = 5;
    LocalNginx nginx;
    sh("head -c " + std::to_string(mib) + "M /dev/urandom > " + nginx.www() + "/asset.bin");
    char tmpl[] = "/tmp/bench-httpfs-XXXXXX";
    const std::string work = mkdtemp(tmpl), cacheDir = work + "/cache", copy = work + "/copy.bin";
    ::core::SmartPtr<vfs::FileSystem> source(new vfs::HTTPFileSystem(nginx.url("/").c_str(), 4000, 4000));

    std::vector<double> first, curlTimes, second, catTimes;
    double sentPerByte = 0;
    for (int r = 0; r < reps; ++r) {
        sh("rm -rf '" + cacheDir + "' '" + copy + "'");
        curlTimes.push_back(timed([&] { sh("curl -s -o '" + copy + "' " + nginx.url("/asset.bin")); }));
        sh("rm -f '" + copy + "'");
        ::core::SmartPtr<vfs::CacheFileSystem> cache(new vfs::CacheFileSystem(
            cacheDir.c_str(), source.get(), vfs::CacheFileSystem::CachePolicy::DEFAULT, 1 << 18, 4));
        const unsigned long long sentBefore = nginx.bytesSent("/asset.bin");
        first.push_back(timed([&] {
            if (readAll(cache.get(), "asset.bin") != size)
                exit(1);
        }));
        second.push_back(timed([&] {
            if (readAll(cache.get(), "asset.bin") != size)
                exit(1);
        }));
        sentPerByte = (double)(nginx.bytesSent("/asset.bin") - sentBefore) / (double)size;
        catTimes.push_back(timed([&] { sh("cat '" + cacheDir + "/asset.bin' > /dev/null"); }));
    }
    sh("rm -rf '" + work + "'");
    printf("file size %u MiB, %d repetitions, medians\n", mib, reps);
    printf("first read through the cache: %.3f s, curl -o: %.3f s, ratio %.2f (target <= 1.25)\n",
           median(first), median(curlTimes), median(first) / median(curlTimes));
    printf("second read (local file): %.3f s, cat: %.3f s, ratio %.2f (target <= 1.1)\n", median(second),
           median(catTimes), median(second) / median(catTimes));
    printf("bytes sent by nginx / file size, sequential: %.4f\n", sentPerByte);
    return 0;
}
