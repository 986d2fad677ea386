// HTTP client throughput against curl on the same nginx, in the same run:
//   one GET of a large file (64 KiB reads) vs `curl -o /dev/null`,
//   10,000 GETs of 1 KiB on one kept-alive Connection vs one curl run over the
//   same URLs (globbed, so curl reuses its connection too).
// Runs alternate (ours, curl, ours, curl, ...); medians are compared.
// Usage: bench_http [size-MiB] [requests]   (defaults 256 and 10000)
#include "../tools/LocalNginx.h"
#include "BenchTiming.h"
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <tmain/http/Body.h>
#include <tmain/http/Connection.h>
#include <tmain/http/ProxyResolver.h>
#include <tmain/stream/InputStream.h>
#include <unistd.h>
#include <vector>

using namespace tarso::http;

namespace {

unsigned long long get(Connection& c, const std::string& url) {
    Request req(url.c_str(), Request::GET);
    std::unique_ptr<Response> r(c.process(&req));
    if (r->getStatusCode() != 200) {
        fprintf(stderr, "GET %s: %u\n", url.c_str(), r->getStatusCode());
        exit(1);
    }
    static char buf[65536];
    unsigned long long total = 0;
    if (Body* b = r->getBody())
        for (unsigned n; (n = b->getData()->read(buf, 1, sizeof(buf))) > 0;)
            total += n;
    return total;
}

} // namespace

int main(int argc, char** argv) {
    const unsigned mib = argc > 1 ? (unsigned)atoi(argv[1]) : 256;
    const unsigned requests = argc > 2 ? (unsigned)atoi(argv[2]) : 10000;
    const int reps = 9;
    LocalNginx nginx;
    const std::string base = nginx.url("");
    sh("head -c " + std::to_string(mib) + "M /dev/urandom > " + nginx.www() +
       "/big.bin && head -c 1024 /dev/urandom > " + nginx.www() + "/k.bin");
    ProxyResolver::initialize();

    std::vector<double> oursBig, curlBig, oursSmall, curlSmall;
    const std::string bigUrl = base + "/big.bin";
    for (int i = 0; i < reps; ++i) {
        oursBig.push_back(timed([&] {
            Connection c;
            if (get(c, bigUrl) != (unsigned long long)mib << 20)
                exit(1);
        }));
        curlBig.push_back(timed([&] { sh("curl -s -o /dev/null " + bigUrl); }));
        oursSmall.push_back(timed([&] {
            Connection c;
            for (unsigned k = 1; k <= requests; ++k)
                if (get(c, base + "/k.bin?" + std::to_string(k)) != 1024)
                    exit(1);
        }));
        curlSmall.push_back(timed(
            [&] { sh("curl -s '" + base + "/k.bin?[1-" + std::to_string(requests) + "]' > /dev/null"); }));
    }
    printf("GET %u MiB, 64 KiB reads: ours %.3f s, curl %.3f s, ratio %.2f (target <= 1.2)\n", mib,
           median(oursBig), median(curlBig), median(oursBig) / median(curlBig));
    printf("%u GETs of 1 KiB, one connection: ours %.3f s, curl %.3f s, ratio %.2f (target <= 1.2)\n",
           requests, median(oursSmall), median(curlSmall), median(oursSmall) / median(curlSmall));
    return 0;
}
