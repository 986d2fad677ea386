// Reads a 256 MiB file in 4 KiB requests through BufferedInputStream over
// FileInputStream and through fread, in the same run, and prints the ratio
// of the times (ours / fread). The file is read once before timing so both
// paths see a warm page cache.
#include <tmain/stream/BufferedInputStream.h>
#include <tmain/stream/FileInputStream.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

using namespace tarso::stream;

namespace {

const size_t FILE_SIZE = 256u << 20;
const unsigned REQUEST = 4096;
const int REPETITIONS = 5;

// Touches one byte per block so neither loop can be skipped; the sums of both
// paths must agree.
unsigned long long readWithFread(const std::string& name) {
    FILE* f = fopen(name.c_str(), "rb");
    if (!f) {
        perror("fopen");
        exit(1);
    }
    std::vector<unsigned char> buf(REQUEST);
    unsigned long long sum = 0;
    size_t n;
    while ((n = fread(buf.data(), 1, REQUEST, f)) > 0)
        sum += buf[n - 1];
    fclose(f);
    return sum;
}

unsigned long long readWithStreams(const std::string& name, unsigned bufferSize) {
    BufferedInputStream in(new FileInputStream(name.c_str(), 4096), bufferSize, true);
    in.open(Stream::OM_READ | Stream::OM_BINARY);
    std::vector<unsigned char> buf(REQUEST);
    unsigned long long sum = 0;
    unsigned n;
    while ((n = in.read(buf.data(), 1, REQUEST)) > 0)
        sum += buf[n - 1];
    in.close();
    return sum;
}

template <class F> double seconds(F f, unsigned long long& sum) {
    auto start = std::chrono::steady_clock::now();
    sum = f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main() {
    namespace fs = std::filesystem;
    const std::string name =
        (fs::temp_directory_path() / ("tmain_bench_read_" + std::to_string(getpid()) + ".bin")).string();
    {
        FILE* f = fopen(name.c_str(), "wb");
        if (!f) {
            perror("fopen");
            return 1;
        }
        std::vector<unsigned char> block(1 << 20);
        unsigned state = 12345;
        for (size_t written = 0; written < FILE_SIZE; written += block.size()) {
            for (unsigned char& b : block)
                b = (unsigned char)((state = state * 1103515245u + 12345u) >> 24);
            fwrite(block.data(), 1, block.size(), f);
        }
        fclose(f);
    }

    unsigned long long reference = 0, sum = 0;
    seconds([&] { return readWithFread(name); }, reference); // warms the page cache
    const unsigned bufferSizes[] = {65536, 4096};
    std::vector<double> freadTimes, streamTimes[2];
    for (int rep = 0; rep < REPETITIONS; ++rep) {
        freadTimes.push_back(seconds([&] { return readWithFread(name); }, sum));
        if (sum != reference)
            fprintf(stderr, "fread checksum mismatch\n");
        for (int b = 0; b < 2; ++b) {
            streamTimes[b].push_back(seconds([&] { return readWithStreams(name, bufferSizes[b]); }, sum));
            if (sum != reference) {
                fprintf(stderr, "stream checksum mismatch (buffer %u)\n", bufferSizes[b]);
                fs::remove(name);
                return 1;
            }
        }
    }
    fs::remove(name);

    const double mb = FILE_SIZE / 1e6;
    double tf = median(freadTimes);
    printf("file %zu MiB, %u-byte requests, median of %d runs\n", FILE_SIZE >> 20, REQUEST, REPETITIONS);
    printf("fread:                                    %8.1f MB/s\n", mb / tf);
    for (int b = 0; b < 2; ++b) {
        double ts = median(streamTimes[b]);
        printf("BufferedInputStream(%5u) over FileInputStream: %8.1f MB/s (ratio %.2f)\n", bufferSizes[b],
               mb / ts, ts / tf);
    }
    printf("buffered/fread ratio: %.2f\n", median(streamTimes[0]) / tf);
    return 0;
}
