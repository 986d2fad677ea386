#include "../support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/DeflateInputStream.h>
#include <tmain/stream/DeflateOutputStream.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/GZIPInputStream.h>
#include <tmain/stream/IOException.h>
#include <zlib.h>

using namespace tarso::stream;
using IllegalState = ::core::IllegalStateException;
using Unsupported = ::core::UnsupportedOperationException;

namespace {

// Memory source giving at most `chunk` bytes per read and no position; with
// `avail` false it reports nothing available, like a socket.
struct Trickle : ByteInputStream {
    Trickle(const std::string& d, unsigned chunk, bool avail = true)
        : ByteInputStream(d.data(), (unsigned)d.size(), true), mChunk(chunk), mAvail(avail) {}
    unsigned tell() const override { return Stream::tell(); }
    unsigned available() const override { return mAvail ? ByteInputStream::available() : 0; }
    using InputStream::read;
    unsigned read(void* b, unsigned s, unsigned c) override {
        return ByteInputStream::read(b, 1, std::min(s * c, mChunk));
    }
    unsigned mChunk;
    bool mAvail;
};

// Memory sink taking at most `limit` bytes in total.
struct Sink : ByteOutputStream {
    explicit Sink(unsigned limit = UINT_MAX) : mLimit(limit) {}
    using OutputStream::write;
    unsigned write(const void* b, unsigned s, unsigned c) override {
        return ByteOutputStream::write(b, 1, std::min(s * c, mLimit - getSize()));
    }
    std::string data() const { return std::string((const char*)getBytes(), getSize()); }
    unsigned mLimit;
};

std::string makeText(size_t n, unsigned seed) {
    static const char* words[] = {"stream ", "deflate ", "gzip ", "member ",
                                  "window ", "\n",       "crc ",  "zlib "};
    std::mt19937 rng(seed);
    std::string s;
    while (s.size() < n)
        rng() % 5 ? s += words[rng() % 8] : s += char('A' + rng() % 26);
    s.resize(n);
    return s;
}

std::string deflated(const std::string& text, int level, unsigned bufferSize, bool raw = false) {
    Sink sink;
    DeflateOutputStream out(&sink, level, bufferSize, raw);
    out.open(Stream::OM_WRITE);
    EXPECT_EQ(out.write(text.data(), 1, (unsigned)text.size()), text.size());
    out.close();
    EXPECT_FALSE(sink.isOpen()); // close() closes the target
    return sink.data();
}

std::string readAll(InputStream& in, unsigned chunk = 65536) {
    std::string out, buf(chunk, '\0');
    while (unsigned n = in.read(&buf[0], 1, chunk))
        out.append(buf.data(), n);
    return out;
}

// Source streams are owned by the compression streams here (deleted with them).
template <class S>
std::unique_ptr<S> opened(const std::string& data, unsigned in = 16384, unsigned out = 16384) {
    std::unique_ptr<S> s(new S(new ByteInputStream(data.data(), (unsigned)data.size(), true), true, in, out));
    s->open(Stream::OM_READ);
    return s;
}

std::string gunzip(const std::string& gz, unsigned in = 16384, unsigned out = 16384, unsigned chunk = 65536) {
    auto s = opened<GZIPInputStream>(gz, in, out);
    std::string text = readAll(*s, chunk);
    EXPECT_TRUE(s->eof() && !s->hasError() && s->tell() == text.size());
    return text;
}

template <class E = IOException, class F> std::string error(F f) {
    return tmaintest::messageOf<E>(f);
}

struct CompressionTools : ::testing::Test {
    tmaintest::TempDir mDir;
    // Runs cmd in the test's directory and returns its standard output.
    std::string sh(const std::string& cmd) {
        std::string out;
        EXPECT_EQ(0, tmaintest::run("cd " + mDir.path() + " && " + cmd, &out)) << cmd;
        return out;
    }
    void save(const char* name, const std::string& data) { tmaintest::writeFile(mDir.file(name), data); }
};

} // namespace

TEST_F(CompressionTools, GzipFilesMembersAndSeeking) {
    TMAIN_REQUIRE_TOOL("gzip");
    const std::string text = makeText(300000, 1), small = makeText(777, 2);
    save("data.txt", text);
    save("small.txt", small);
    const std::string fast = sh("gzip -1 -n -c data.txt"), named = sh("gzip -9 -N -c data.txt"),
                      empty = sh("gzip -c </dev/null"), three = fast + empty + sh("gzip -c small.txt");
    save("3.gz", three);
    ASSERT_TRUE((fast[3] & 0x08) == 0 && (named[3] & 0x08) != 0); // only -N stores the name
    EXPECT_EQ(gunzip(fast), text);
    EXPECT_EQ(gunzip(named, 65536, 65536, 1 << 20), text);
    EXPECT_EQ(gunzip(empty), "");
    EXPECT_EQ(gunzip(three, 100, 1000, 999), text + small);
    GZIPInputStream file(new FileInputStream(mDir.file("3.gz").c_str()), true); // opens and closes the file
    file.open(Stream::OM_READ | Stream::OM_BINARY);
    EXPECT_EQ(readAll(file, 1000), text + small);
    file.close();
    EXPECT_FALSE(file.getSource()->isOpen());
    auto in = opened<GZIPInputStream>(three, 256, 256);
    std::string buf(text.size() + 10, '\0'); // one read spanning three members
    EXPECT_EQ(buf.substr(0, in->read(&buf[0], 1, (unsigned)buf.size())), text + small.substr(0, 10));
    in->seek(-(int)text.size(), Stream::SM_CURRENT); // back into the first member
    EXPECT_EQ(readAll(*in), text.substr(10) + small);
}

TEST_F(CompressionTools, ZlibFormatWithPythonAndPigz) {
    TMAIN_REQUIRE_TOOL("python3");
    TMAIN_REQUIRE_TOOL("pigz");
    const std::string text = makeText(200000, 3);
    save("data.txt", text);
    const char* python = "python3 -c 'import zlib,sys; sys.stdout.buffer.write(zlib.";
    DeflateInputStream in(new Trickle(sh("pigz -z -c data.txt"), 4096), true, 1000, 3000);
    in.open(Stream::OM_READ);
    EXPECT_EQ(readAll(in, 2500), text);
    EXPECT_TRUE(in.eof() && !in.hasError());
    for (int level : {-1, 0, 1, 9}) {
        save("ours.z", deflated(text, level, 100));
        save("ours.raw", deflated(text, level, 100, true));
        EXPECT_EQ(sh(python + std::string("decompress(sys.stdin.buffer.read()))' <ours.z")), text);
        EXPECT_EQ(sh(python + std::string("decompress(sys.stdin.buffer.read(), -15))' <ours.raw")), text);
        EXPECT_EQ(sh("pigz -dz -c ours.z"), text);
    }
}

TEST(Compression, TypedRoundTripAndFlush) {
    Sink sink;
    DeflateOutputStream out(&sink, 6, 64);
    out.open(Stream::OM_WRITE);
    ASSERT_TRUE(out.write((int)-2) && out.write(std::string("typed")));
    out.flush(); // what was written so far can be read at once
    DeflateInputStream part(new Trickle(sink.data(), 1 << 20), true);
    part.open(Stream::OM_READ);
    EXPECT_EQ(readAll(part), std::string("\xfe\xff\xff\xff\x05\0\0\0typed", 13));
    ASSERT_TRUE(out.write(std::string("more")));
    out.close();
    auto in = opened<DeflateInputStream>(sink.data());
    int i = 0;
    std::string a, b;
    EXPECT_TRUE(in->read(i) && in->read(a) && in->read(b) && !in->read(i));
    EXPECT_TRUE(i == -2 && a == "typed" && b == "more" && in->eof());
}

TEST_F(CompressionTools, HostileGzip) {
    TMAIN_REQUIRE_TOOL("gzip");
    const std::string text = makeText(5000, 5);
    save("t.txt", text);
    const std::string gz = sh("gzip -n -c t.txt"), body = gz.substr(10);
    // Every optional field: extra "xyz", name "n.txt", comment "hi", header CRC.
    const std::string head("\x1f\x8b\x08\x1e\1\2\3\4\0\3\3\0xyzn.txt\0hi\0\xAA\xBB", 26);
    EXPECT_EQ(gunzip(head + body), text);
    for (size_t cut = 0; cut <= head.size(); ++cut)
        EXPECT_EQ(error([&] { gunzip(head.substr(0, cut)); }),
                  cut < 2    ? "Invalid gzip stream (unable to read magic number)"
                  : cut == 2 ? "Invalid gzip stream (unable to read method)"
                  : cut == 3 ? "Invalid gzip stream (unable to read flags)"
                  : cut < 10 ? "Invalid zgip stream (unable to skip xflags and OS code)"
                  : cut < 26 ? "Invalid gzip stream (unable to skip HEAD_CRC)"
                             : "Invalid gzip stream: eof met right after header")
            << "cut at " << cut;
    auto fails = [](const std::string& gz) { return error([&] { gunzip(gz); }); };
    EXPECT_EQ(fails("PK\3\4" + body), "Invalid gzip stream (wrong magic number 504B)");
    EXPECT_EQ(fails("\x1f\x8b\x07" + gz.substr(3)), "Invalid gzip stream (wrong method 7)");
    EXPECT_EQ(fails(gz.substr(0, 3) + "\x20" + gz.substr(4)), "Invalid gzip stream (wrong method 8)");
    EXPECT_EQ(fails(std::string("\x1f\x8b\x08\x08\0\0\0\0\0\3unterminated", 22)),
              "Invalid gzip stream: eof met right after header");

    std::string bad = gz;
    bad[bad.size() - 7] ^= 0x10; // the stored CRC's second byte
    const unsigned sum = (unsigned)crc32(0, (const Bytef*)text.data(), (uInt)text.size());
    auto crc = opened<GZIPInputStream>(bad);
    EXPECT_EQ(error([&] { readAll(*crc); }),
              ::core::formatMessagef("gzip error: CRC missmatch (%X != %X)", sum ^ 0x1000, sum));
    EXPECT_TRUE(crc->hasError());

    auto in = opened<GZIPInputStream>(gz + "garbage!");
    std::string buf(text.size() + 100, '\0');
    ASSERT_EQ(in->read(&buf[0], 1, (unsigned)buf.size()), text.size()); // the member's bytes still come
    EXPECT_FALSE(in->eof());
    EXPECT_EQ(error([&] { in->read(&buf[0], 1, 1); }), "Invalid gzip stream (wrong magic number 6761)");
}

// Files cut at every offset, made by gzip and by python's zlib (zlib and raw
// deflate): each cut is an error that still delivers a prefix, the whole file
// is not. Three gzip members (the middle one empty) cut right between two
// members are a whole file.
TEST_F(CompressionTools, CutFilesAreErrors) {
    TMAIN_REQUIRE_TOOL("gzip");
    TMAIN_REQUIRE_TOOL("python3");
    const std::string text = makeText(6000, 9), more = makeText(300, 10);
    save("a.txt", text);
    save("b.txt", more);
    const std::string one = sh("gzip -9 -N -c a.txt"), empty = sh("gzip -c </dev/null"),
                      three = one + empty + sh("gzip -c b.txt");
    auto py = [&](int wbits) {
        return sh("python3 -c 'import zlib,sys; c=zlib.compressobj(9,zlib.DEFLATED," + std::to_string(wbits) +
                  "); sys.stdout.buffer.write(c.compress(sys.stdin.buffer.read())+c.flush())' <a.txt");
    };
    const std::string zlibData = py(15), rawData = py(-15);
    tmaintest::ScopedLogCapture log;
    const logging::Level level = logging::Logger::mROOT_LOGGER.getLevel();
    logging::Logger::mROOT_LOGGER.setLevel(logging::LEVEL_WARN);
    enum Kind { GZIP, ZLIB, RAW };
    for (Kind kind : {GZIP, ZLIB, RAW}) {
        const std::string& data = kind == ZLIB ? zlibData : kind == RAW ? rawData : three;
        const std::string all = kind == GZIP ? text + more : text;
        for (size_t cut = 0; cut <= data.size(); ++cut) {
            for (bool trickle : {false, true}) {
                const std::string part = data.substr(0, cut);
                InputStream* src = trickle ? new Trickle(part, 1, false) // a raw byte per source read
                                           : new ByteInputStream(part.data(), (unsigned)cut, true);
                std::unique_ptr<DeflateInputStream> in(
                    kind == GZIP ? new GZIPInputStream(src, true, 64, 100)
                                 : new DeflateInputStream(src, true, 64, 100, kind == RAW));
                std::string got, thrown, buf(33, '\0');
                try {
                    in->open(Stream::OM_READ);
                    while (unsigned n = in->read(&buf[0], 1, 33))
                        got.append(buf.data(), n);
                } catch (const IOException& e) {
                    thrown = e.getMessage();
                }
                const bool whole = cut == data.size() ||
                                   (kind == GZIP && (cut == one.size() || cut == one.size() + empty.size()));
                SCOPED_TRACE(::testing::Message()
                             << "kind " << kind << " cut " << cut << " trickle " << trickle);
                // A read that throws has put its bytes in the buffer all the same.
                EXPECT_TRUE(in->eof() && in->hasError() == !whole &&
                            (!thrown.empty() || in->tell() == got.size()))
                    << in->tell();
                const bool trailer =
                    kind == GZIP && cut >= one.size() - 8 && cut < one.size(); // the first one's
                // Only the length field missing: every byte came.
                EXPECT_EQ(whole ? all.substr(0, cut == data.size() ? all.size() : text.size())
                          : trailer && cut >= one.size() - 4 ? text
                                                             : all.substr(0, got.size()),
                          got);
                EXPECT_EQ(trailer ? std::string(cut < one.size() - 4 ? "gzip error: unable to read CRC" : "")
                          : kind != GZIP || whole ? ""
                                                  : thrown,
                          thrown);
            }
        }
    }
    logging::Logger::mROOT_LOGGER.setLevel(level);
    EXPECT_TRUE(log->contains("GZIPInputStream: compressed data ends early (truncated after "));
    EXPECT_TRUE(log->contains("DeflateInputStream: compressed data ends early (truncated after "));
}

TEST(Compression, CorruptStreamsEnd) {
    const std::string text = makeText(100000, 6), z = deflated(text, 9, 4096);
    std::mt19937 rng(7);
    int detected = 0;
    const logging::Level level = logging::Logger::mROOT_LOGGER.getLevel();
    logging::Logger::mROOT_LOGGER.setLevel(logging::LEVEL_ERROR); // the faults are logged as warnings
    for (int round = 0; round < 30; ++round) {
        std::string data = z;
        data[2 + rng() % (z.size() - 2)] ^= (char)(1 + rng() % 255);
        DeflateInputStream in(new Trickle(data, 1 + rng() % 5000), true, 512, 512);
        in.open(Stream::OM_READ);
        readAll(in, 1 + rng() % 3000); // what it could, then 0
        EXPECT_TRUE(in.eof());
        detected += in.hasError();
    }
    logging::Logger::mROOT_LOGGER.setLevel(level);
    EXPECT_GT(detected, 20);
}

TEST(Compression, BufferingSeekAndMisuse) {
    const std::string text = makeText(50000, 8), z = deflated(text, 6, 512);
    DeflateInputStream in(new ByteInputStream(z.data(), (unsigned)z.size(), false), true, 4096, 1024);
    std::string buf(10000, '\0');
    EXPECT_EQ(error<IllegalState>([&] { in.read(&buf[0], 1, 1); }), "DeflateInputStream not open");
    in.open(Stream::OM_READ);
    EXPECT_EQ(error<IllegalState>([&] { in.open(Stream::OM_READ); }), "Deflate Stream already opened!");
    ASSERT_EQ(in.read(&buf[0], 1, 10), 10u);
    EXPECT_EQ(in.available(), 1014u); // the surplus of a small request waits
    EXPECT_EQ(buf.substr(0, in.read(&buf[0], 1, 10000)), text.substr(10, 10000)); // a large one in one call
    in.seek(100, Stream::SM_CURRENT);
    in.bookMark();
    in.seek(5, Stream::SM_BEGIN); // backwards: restarts on the rewindable source
    ASSERT_TRUE(in.read(&buf[0], 5));
    EXPECT_EQ(buf.substr(0, 5), text.substr(5, 5));
    in.rewind();
    EXPECT_EQ(in.tell(), 10110u);
    EXPECT_EQ(readAll(in), text.substr(10110));
    EXPECT_EQ(error([&] { in.seek(-1, Stream::SM_BEGIN); }), "DeflateInputStream: invalid seek target -1");
    EXPECT_EQ(error<Unsupported>([&] { in.seek(0, Stream::SM_END); }),
              "DeflateInputStream: unsupported seek mode (SM_END)");
    EXPECT_EQ(error<Unsupported>([&] { in.readLine(&buf[0], 10, '\n'); }), "DeflateInputStream::readLine");
    EXPECT_EQ(error<Unsupported>([&] { in.getSTLStream(); }),
              "Can't provide a valid istream for DeflateInputStream instances");
    DeflateInputStream once(new Trickle(z, 100), true);
    once.open(Stream::OM_READ);
    once.seek(20, Stream::SM_BEGIN);
    EXPECT_EQ(error([&] { once.seek(10, Stream::SM_BEGIN); }),
              "DeflateInputStream: cannot seek backwards, the source stream cannot report its position");
    GZIPInputStream gz(new ByteInputStream("", 0, false), true);
    EXPECT_EQ(error<IllegalState>([&] { gz.read(&buf[0], 1, 1); }), "gzip stream not opened");

    Sink sink, tiny(10);
    DeflateOutputStream out(&sink, 12, 64), shortWrite(&tiny, 1, 64);
    EXPECT_EQ(error([&] { out.open(Stream::OM_WRITE); }),
              "Unable to open Delflate stream for output: stream error (FFFFFFFE)!");
    EXPECT_EQ(error<IllegalState>([&] { out.write("x", 1, 1); }), "DeflateOutputStream not open");
    EXPECT_EQ(error<IllegalState>([&] { out.flush(); }),
              "Deflate stream not yet opened for output. Unable to flush.");
    EXPECT_EQ(error<Unsupported>([&] { out.getSTLStream(); }),
              "Can't provide a valid ostream for DeflateOutputStream instances");
    shortWrite.open(Stream::OM_WRITE);
    EXPECT_EQ(error<IllegalState>([&] { shortWrite.open(Stream::OM_WRITE); }),
              "Deflate Stream already opened!");
    EXPECT_EQ(error([&] {
                  for (int i = 0; i < 100; ++i) // until the deflater emits its first block
                      shortWrite.write(text.data(), 1, (unsigned)text.size());
              }),
              "Error during deflate compression. Write operation failed");
    EXPECT_EQ(error([&] { shortWrite.close(); }),
              "Error during deflate compression. Closing operation failed.");
    EXPECT_FALSE(shortWrite.isOpen() || tiny.isOpen());
}
