// `tmain get` against `curl -o`, whole processes, in the same run: a file
// from nginx on loopback, cold cache each time (a fresh cache folder), the
// output file written by both. Runs alternate; medians are compared.
// Usage: bench_tool [size-MiB]   (default 256; `tmain` is looked for next to
// this program)
#include "../tools/LocalNginx.h"
#include "BenchTiming.h"
#include <climits>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv) {
    const unsigned mib = argc > 1 ? (unsigned)atoi(argv[1]) : 256;
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    std::string tool = n > 0 ? std::string(self, (size_t)n) : std::string(argv[0]);
    tool = tool.substr(0, tool.rfind('/') + 1) + "tmain";
    if (access(tool.c_str(), X_OK) != 0) {
        fprintf(stderr, "bench_tool: no tmain program at %s\n", tool.c_str());
        return 1;
    }
    const int reps = 5;
    LocalNginx nginx;
    sh("head -c " + std::to_string(mib) + "M /dev/urandom > " + nginx.www() + "/asset.bin");
    char tmpl[] = "/tmp/bench-tool-XXXXXX";
    const std::string work = mkdtemp(tmpl), cache = work + "/cache", copy = work + "/copy.bin";
    const std::string url = nginx.url("/asset.bin");
    std::vector<double> ours, theirs;
    for (int r = 0; r < reps; ++r) {
        sh("rm -rf '" + cache + "' '" + copy + "'");
        theirs.push_back(timed([&] { sh("curl -s -o '" + copy + "' " + url); }));
        sh("rm -f '" + copy + "'");
        ours.push_back(timed(
            [&] { sh("'" + tool + "' get -q " + url + " -o '" + copy + "' --cache '" + cache + "'"); }));
        sh("cmp -s '" + copy + "' " + nginx.www() + "/asset.bin");
    }
    printf("tmain get (cold cache) of %u MiB: %.3f s, curl -o: %.3f s, ratio %.2f (target <= 1.25)\n", mib,
           median(ours), median(theirs), median(ours) / median(theirs));
    sh("rm -rf '" + work + "'");
    return 0;
}
