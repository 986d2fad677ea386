// Inflating and deflating through the compression streams against plain zlib
// loops on the same 64 MiB, with the same 64 KiB buffers. Runs alternate
// between the two sides; the ratio (ours / zlib) uses the best run of each.
// Time is the thread's CPU time, which a busy machine disturbs less than wall time.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <time.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/DeflateInputStream.h>
#include <tmain/stream/DeflateOutputStream.h>
#include <tmain/stream/GZIPInputStream.h>
#include <vector>
#include <zlib.h>

using namespace tarso::stream;

namespace {

const unsigned BUF = 64 * 1024;
const size_t SIZE = 64u << 20;

// Counts what it is given; both sides of the deflate comparison write here.
class NullSink : public OutputStream {
public:
    void open(EOpenMode) override {}
    void close() override {}
    bool isOpen() const override { return true; }
    bool hasError() const override { return false; }
    unsigned write(const void*, unsigned size, unsigned count) override {
        mCount += (size_t)size * count;
        return size * count;
    }
    void flush() override {}
    std::ostream* getSTLStream() override { return nullptr; }
    size_t mCount = 0;
};

std::string makeData() {
    static const char* words[] = {"lorem ",  "ipsum ",  "dolor ",   "sit ", "amet, ",      "stream ",
                                  "window ", "member ", "deflate ", "\n",   "compressed ", "buffer "};
    std::mt19937 rng(42);
    std::string s;
    s.reserve(SIZE + 64);
    while (s.size() < SIZE) {
        unsigned r = rng();
        if (r % 7 == 0)
            s += std::to_string(r % 100000) + ' ';
        else
            s += words[r % 12];
    }
    s.resize(SIZE);
    return s;
}

std::string compress(const std::string& in, int windowBits) {
    z_stream z = z_stream();
    deflateInit2(&z, 6, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, (uLong)in.size()), '\0');
    z.next_in = (Bytef*)in.data();
    z.avail_in = (uInt)in.size();
    z.next_out = (Bytef*)&out[0];
    z.avail_out = (uInt)out.size();
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// The reference: zlib's own inflate loop, reading BUF-sized input chunks from memory.
size_t zlibInflate(const std::string& data, int windowBits, std::vector<unsigned char>& in,
                   std::vector<unsigned char>& out) {
    z_stream z = z_stream();
    inflateInit2(&z, windowBits);
    size_t pos = 0, total = 0;
    int rc = Z_OK;
    while (rc != Z_STREAM_END) {
        if (z.avail_in == 0) {
            size_t n = std::min<size_t>(BUF, data.size() - pos);
            if (n == 0)
                break;
            memcpy(in.data(), data.data() + pos, n);
            pos += n;
            z.next_in = in.data();
            z.avail_in = (uInt)n;
        }
        z.next_out = out.data();
        z.avail_out = BUF;
        rc = inflate(&z, Z_NO_FLUSH);
        if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR)
            break;
        total += BUF - z.avail_out;
    }
    inflateEnd(&z);
    return total;
}

size_t streamInflate(DeflateInputStream& stream, std::vector<unsigned char>& out) {
    stream.open(Stream::OM_READ);
    size_t total = 0;
    while (unsigned n = stream.read(out.data(), 1, BUF))
        total += n;
    stream.close();
    return total;
}

size_t zlibDeflate(const std::string& data, NullSink& sink, std::vector<unsigned char>& out) {
    z_stream z = z_stream();
    deflateInit(&z, 6);
    for (size_t pos = 0; pos <= data.size(); pos += BUF) {
        size_t n = std::min<size_t>(BUF, data.size() - pos);
        z.next_in = (Bytef*)data.data() + pos;
        z.avail_in = (uInt)n;
        const int flush = pos + BUF >= data.size() ? Z_FINISH : Z_NO_FLUSH;
        do {
            z.next_out = out.data();
            z.avail_out = BUF;
            deflate(&z, flush);
            sink.write(out.data(), 1, BUF - z.avail_out);
        } while (z.avail_out == 0);
        if (flush == Z_FINISH)
            break;
    }
    deflateEnd(&z);
    return sink.mCount;
}

size_t streamDeflate(const std::string& data, NullSink& sink) {
    DeflateOutputStream out(&sink, 6, BUF);
    out.open(Stream::OM_WRITE);
    for (size_t pos = 0; pos < data.size(); pos += BUF)
        out.write(data.data() + pos, 1, (unsigned)std::min<size_t>(BUF, data.size() - pos));
    out.close();
    return sink.mCount;
}

double cpuNow() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

double seconds(const std::function<size_t()>& f, size_t expect) {
    double t0 = cpuNow();
    size_t got = f();
    double s = cpuNow() - t0;
    if (got != expect) {
        fprintf(stderr, "wrong result: %zu bytes, expected %zu\n", got, expect);
        exit(1);
    }
    return s;
}

void compare(const char* label, int reps, const std::function<size_t()>& ours,
             const std::function<size_t()>& zlib, size_t expect) {
    std::vector<double> a, b;
    for (int i = 0; i < reps; ++i) { // alternate which side goes first
        if (i % 2)
            b.push_back(seconds(zlib, expect));
        a.push_back(seconds(ours, expect));
        if (i % 2 == 0)
            b.push_back(seconds(zlib, expect));
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    printf("%s: ours best %.3f s median %.3f s, zlib best %.3f s median %.3f s (median ratio %.3f)\n", label,
           a[0], a[reps / 2], b[0], b[reps / 2], a[reps / 2] / b[reps / 2]);
    printf("%s ratio: %.2f\n", label, a[0] / b[0]);
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const int reps = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    const std::string data = makeData();
    const std::string gz = compress(data, 31), z = compress(data, 15);
    printf("input %zu bytes; gzip %zu bytes, zlib %zu bytes\n", data.size(), gz.size(), z.size());
    std::vector<unsigned char> in(BUF), out(BUF);

    compare(
        "gzip-inflate", reps,
        [&] {
            GZIPInputStream s(new ByteInputStream(gz.data(), (unsigned)gz.size(), false), true, BUF, BUF);
            return streamInflate(s, out);
        },
        [&] { return zlibInflate(gz, 31, in, out); }, data.size());
    compare(
        "deflate-inflate", reps,
        [&] {
            DeflateInputStream s(new ByteInputStream(z.data(), (unsigned)z.size(), false), true, BUF, BUF);
            return streamInflate(s, out);
        },
        [&] { return zlibInflate(z, 15, in, out); }, data.size());
    NullSink probe;
    const size_t deflated = zlibDeflate(data, probe, out);
    compare(
        "deflate", std::max(1, reps / 2),
        [&] {
            NullSink sink;
            return streamDeflate(data, sink);
        },
        [&] {
            NullSink sink;
            return zlibDeflate(data, sink, out);
        },
        deflated);
    return 0;
}
