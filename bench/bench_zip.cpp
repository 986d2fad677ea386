// Reading every entry of two archives made by python3's zipfile: 10,000 small
// files (looked up by name, then read) and ten 50 MiB files. The peers are
// `unzip -p archive > /dev/null` and a python3 zipfile loop on the same
// archive, run alternately with ours; the ratios use the median CPU time of
// each side (ours: the process's; the peers': their children's, shell
// included), which a busy machine disturbs less than wall time. A last line
// compares, in wall time, 8 threads reading the ten big entries at once
// (taking them from a shared counter) with one thread reading them in turn.
#include "BenchTiming.h"
#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/ZIPFileSystem.h>
#include <unistd.h>
#include <vector>

using namespace tarso;

namespace {

double cpuSeconds(int who) {
    struct rusage u;
    getrusage(who, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}
// CPU seconds of the call (RUSAGE_SELF) or of the children it waited for (RUSAGE_CHILDREN).
template <class F> double cpuTimed(int who, F f) {
    double start = cpuSeconds(who);
    f();
    return cpuSeconds(who) - start;
}

const int RUNS = 5;

unsigned long long readEntry(vfs::ZIPFileSystem& zfs, const std::string& name, std::vector<char>& buffer) {
    ::core::SmartPtr<vfs::File> f(zfs.lookup(name.c_str()));
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    unsigned long long total = 0;
    while (unsigned n = in->read(buffer.data(), 1, (unsigned)buffer.size()))
        total += n;
    return total;
}

// Opens the archive and reads the named entries, from `threads` threads.
unsigned long long readAll(const std::string& archive, const std::vector<std::string>& names, int threads) {
    vfs::ZIPFileSystem zfs(archive.c_str());
    std::atomic<size_t> next(0);
    std::atomic<unsigned long long> total(0);
    auto work = [&] {
        std::vector<char> buffer(65536);
        for (size_t i; (i = next++) < names.size();)
            total += readEntry(zfs, names[i], buffer);
    };
    std::vector<std::thread> pool;
    for (int t = 1; t < threads; ++t)
        pool.emplace_back(work);
    work();
    for (auto& t : pool)
        t.join();
    return total;
}

void compare(const char* what, const std::string& archive, const std::vector<std::string>& names) {
    std::vector<double> ours, unzip, python;
    unsigned long long bytes = 0;
    std::string py = "/usr/bin/python3 -c \"import zipfile\nz = zipfile.ZipFile('" + archive +
                     "')\nfor n in z.namelist(): z.read(n)\"";
    for (int r = 0; r < RUNS; ++r) {
        ours.push_back(cpuTimed(RUSAGE_SELF, [&] { bytes = readAll(archive, names, 1); }));
        unzip.push_back(cpuTimed(RUSAGE_CHILDREN, [&] { sh("unzip -p '" + archive + "' > /dev/null"); }));
        python.push_back(cpuTimed(RUSAGE_CHILDREN, [&] { sh(py); }));
    }
    printf("%-22s %8.1f MiB  CPU: ours %.3f s  unzip -p %.3f s  python3 %.3f s  ratio ours/unzip %.2f  "
           "ours/python3 "
           "%.2f\n",
           what, bytes / 1048576.0, median(ours), median(unzip), median(python), median(ours) / median(unzip),
           median(ours) / median(python));
}

} // namespace

int main(int argc, char** argv) {
    std::string only = argc > 1 ? argv[1] : ""; // small, big or threads: that part alone
    if (logging::ConsoleAppender* console = logging::Logger::getRootLogger().getConsoleAppender())
        console->setThreshold(logging::LEVEL_WARN);
    char dirTemplate[] = "/tmp/bench_zip_XXXXXX";
    std::string dir = mkdtemp(dirTemplate);
    std::string small = dir + "/small.zip", big = dir + "/big.zip";
    // Text-like contents (words and numbers), deflated at python's default level.
    sh("/usr/bin/python3 -c \"import random, zipfile\n"
       "r = random.Random(1)\n"
       "w = [b'lorem ', b'ipsum ', b'stream ', b'window ', b'deflate ', b'archive\\n', b'entry ']\n"
       "def text(n):\n"
       "  out = b''.join(r.choice(w) + str(r.randrange(1000)).encode() for _ in range(n // 10 + 1))\n"
       "  return out[:n]\n"
       "with zipfile.ZipFile('" +
       small +
       "', 'w', zipfile.ZIP_DEFLATED) as z:\n"
       "  for i in range(10000): z.writestr('dir%d/file%05d.txt' % (i % 20, i), text(500 + i % 1500))\n"
       "block = text(1 << 20)\n"
       "with zipfile.ZipFile('" +
       big +
       "', 'w', zipfile.ZIP_DEFLATED) as z:\n"
       "  for i in range(10):\n"
       "    with z.open('big%d.bin' % i, 'w') as f:\n"
       "      for k in range(50): f.write(block[k * 7919:] + block[:k * 7919])\n"
       "\"");
    std::vector<std::string> smallNames, bigNames;
    for (int i = 0; i < 10000; ++i) {
        char name[64];
        snprintf(name, sizeof(name), "dir%d/file%05d.txt", i % 20, i);
        smallNames.push_back(name);
    }
    for (int i = 0; i < 10; ++i)
        bigNames.push_back("big" + std::to_string(i) + ".bin");

    if (only.empty() || only == "small")
        compare("10,000 small entries", small, smallNames);
    if (only.empty() || only == "big")
        compare("ten 50 MiB entries", big, bigNames);
    std::vector<double> one, eight;
    for (int r = 0; r < RUNS && (only.empty() || only == "threads"); ++r) {
        one.push_back(timed([&] { readAll(big, bigNames, 1); }));
        eight.push_back(timed([&] { readAll(big, bigNames, 8); }));
    }
    if (!one.empty())
        printf("ten 50 MiB entries: 1 thread %.3f s  8 threads %.3f s  ratio 8/1 %.2f (%u cores)\n",
               median(one), median(eight), median(eight) / median(one), std::thread::hardware_concurrency());
    sh("rm -rf '" + dir + "'");
    return 0;
}
