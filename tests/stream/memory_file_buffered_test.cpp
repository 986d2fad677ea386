#include "../support/TestSupport.h"
#include <climits>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <tmain/stream/BufferedInputStream.h>
#include <tmain/stream/BufferedOutputStream.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/FileOutputStream.h>
#include <tmain/stream/IOException.h>
#include <vector>

using namespace tarso::stream;
using tmaintest::bytesOf;
using tmaintest::readFile;
using IllegalState = core::IllegalStateException;

namespace {

const Stream::EOpenMode RB = Stream::OM_READ | Stream::OM_BINARY;

TEST(ByteInputStream, CopySeekReadLineAndSTL) {
    char data[] = "ab\ncd\n\nlong-line\nz";
    const unsigned size = (unsigned)strlen(data);
    ByteInputStream copied(data, size, true), borrowed(data, size, false);
    data[0] = 'X';
    char c = 0;
    EXPECT_TRUE(copied.read(c) && c == 'a' && borrowed.read(c) && c == 'X');

    copied.seek(0, Stream::SM_END);
    EXPECT_TRUE(copied.eof() && copied.read(&c, 1, 1) == 0);
    auto at = [&copied](int offset, Stream::ESeekMode mode) {
        copied.seek(offset, mode);
        return copied.tell();
    };
    // Targets outside the data are clamped to it.
    EXPECT_EQ((std::vector<unsigned>{size - 3, 0, size, size}),
              (std::vector<unsigned>{at(3, Stream::SM_END), at(-1000, Stream::SM_CURRENT),
                                     at(INT_MAX, Stream::SM_CURRENT), at(INT_MIN, Stream::SM_END)}));
    EXPECT_THROW(copied.seek(0, (Stream::ESeekMode)0), core::IllegalArgumentException);
    copied.seek(0, Stream::SM_BEGIN);
    std::string all(size, '\0');
    EXPECT_EQ(size, copied.read(&all[0], 0x10000, 0x10000)) << "size*count beyond 32 bits";
    EXPECT_EQ("ab\ncd\n\nlong-line\nz", all);

    copied.seek(0, Stream::SM_BEGIN);
    const struct {
        const char* text;
        int capacity;
    } lines[] = {{"ab", 16}, {"cd", 16}, {"", 16}, {"long", 5}, {"-lin", 5},
                 {"e", 5},   {"z", 16},  {"", 16}, {"", 1}};
    char line[16];
    for (auto& l : lines) {
        memset(line, '#', sizeof line);
        EXPECT_EQ(strlen(l.text), copied.readLine(line, l.capacity, '\n')) << l.text;
        EXPECT_STREQ(l.text, line);
    }
    EXPECT_EQ(0u, copied.readLine(line, 0, '\n'));

    copied.seek(3, Stream::SM_BEGIN);
    std::istream* is = copied.getSTLStream();
    EXPECT_EQ(is, copied.getSTLStream());
    std::string word, second;
    *is >> word;
    is->seekg(0) >> second;
    EXPECT_EQ("cd ab", word + " " + second);
    EXPECT_EQ(std::streampos(-1), is->seekg(100).tellg());
    // Passing our own copy back without copying must not leave it dangling.
    copied.setInput(copied.getBytes() + 3, 2, false);
    is->clear();
    EXPECT_TRUE(*is >> word && word == "cd");
    EXPECT_THROW(copied.setInput(nullptr, 3, false), core::IllegalArgumentException);
    copied.setInput(nullptr, 0, true);
    EXPECT_TRUE(copied.eof());
}

TEST(ByteOutputStream, CapacityGrowthSeekAndMessages) {
    ByteOutputStream out(300, 256);
    EXPECT_EQ(512u, out.getCapacity());
    EXPECT_MESSAGE(IllegalState, "ByteOutputStream: stream not yet opened", out.write("a", 1, 1));
    EXPECT_MESSAGE(IllegalState, "ByteOutputStream: stream not yet opened", out.flush());
    out.open(Stream::OM_WRITE);
    const std::string data = tmaintest::randomBytes(600, 7);
    EXPECT_EQ(600u, out.write(data.data(), 2, 300));
    EXPECT_EQ(768u, out.getCapacity());
    EXPECT_EQ(data, bytesOf(out));

    EXPECT_MESSAGE(IOException, "ByteOutputStream:seek:invalid offset (768 not in range [0,768])",
                   out.seek(768, Stream::SM_BEGIN));
    EXPECT_MESSAGE(IOException, "ByteOutputStream:seek:invalid offset (-1 not in range [0,768])",
                   out.seek(-1, Stream::SM_BEGIN));
    EXPECT_MESSAGE(IOException, "ByteOutputStream:seek:invalid offset (2147484247 not in range [0,768])",
                   out.seek(INT_MAX, Stream::SM_CURRENT));
    EXPECT_EQ(600u, out.tell()) << "a failed seek does not move";
    out.seek(767, Stream::SM_BEGIN);
    out.seek(1, Stream::SM_END);
    EXPECT_EQ(767u, out.tell()) << "SM_END counts back from the capacity";
    EXPECT_THROW(out.seek(0, Stream::SM_END), IOException);
    out.seek(10, Stream::SM_BEGIN);
    EXPECT_EQ(10u, out.getSize()) << "the size is the position";
    EXPECT_MESSAGE(IllegalState, "ByteOutputStream: could not allocate data",
                   out.write(data.data(), 0x10000, 0x10000));
    EXPECT_THROW(ByteOutputStream(1, 0), core::IllegalArgumentException);

    std::ostream* os = out.getSTLStream();
    *os << "xyz" << 42;
    EXPECT_TRUE(os == out.getSTLStream() && os->tellp() == 15);
    EXPECT_EQ(data.substr(0, 10) + "xyz42", bytesOf(out));
    EXPECT_MESSAGE(IllegalState, "ByteOutputStream: getSTLStream() already invoked", out.write("a", 1, 1));
    EXPECT_MESSAGE(IllegalState, "ByteOutputStream: getSTLStream() already invoked", out.flush());
}

// Takes at most mLimit bytes per write and records what each call took.
struct RecordingSink : ByteOutputStream {
    RecordingSink() { open(OM_WRITE); }
    ~RecordingSink() override { ++sDestroyed; }
    using OutputStream::write;
    unsigned write(const void* b, unsigned size, unsigned count) override {
        mCalls.push_back(std::min(size * count, mLimit));
        return ByteOutputStream::write(b, 1, mCalls.back());
    }
    static inline int sDestroyed = 0;
    unsigned mLimit = UINT_MAX;
    std::vector<unsigned> mCalls;
};

TEST(BufferedOutputStream, ThreeWayWriteFlushAndOwnership) {
    const int destroyed = RecordingSink::sDestroyed;
    auto* sink = new RecordingSink();
    {
        BufferedOutputStream out(4, sink, true);
        EXPECT_EQ(10u, out.write("0123456789", 1, 10));
        EXPECT_EQ((std::vector<unsigned>{4, 6}), sink->mCalls) << "fill and flush 4, the other 6 directly";
        EXPECT_EQ(3u, out.write("abc", 1, 3));
        EXPECT_EQ(4u, out.write("defg", 2, 2));
        EXPECT_EQ((std::vector<unsigned>{4, 6, 4}), sink->mCalls) << "fill, flush, keep the rest";
        EXPECT_EQ(17u, out.tell());
        EXPECT_EQ(6u, out.write("hijklm", 3, 2));
        EXPECT_EQ((std::vector<unsigned>{4, 6, 4, 4, 5}), sink->mCalls);
        out.flush();
        EXPECT_EQ("0123456789abcdefghijklm", bytesOf(*sink));

        sink->mLimit = 0;
        out.write("jk", 1, 2);
        EXPECT_MESSAGE(IOException, "BufferedOutputStream: the target took 0 of 2 bytes", out.flush());
        sink->mLimit = 1;
        out.write("l", 1, 1);
        out.flush();
        EXPECT_EQ("0123456789abcdefghijklmjkl", bytesOf(*sink)) << "refused bytes stay buffered, in order";

        sink->close();
        EXPECT_MESSAGE(IllegalState, "BufferedOutputStream::write: stream not yet opened",
                       out.write("a", 1, 1));
        EXPECT_MESSAGE(IllegalState, "BufferedOutputStream::flush: stream not yet opened", out.flush());
        out.open(Stream::OM_WRITE);
        sink->mLimit = UINT_MAX;
        out.write("mn", 1, 2);
        std::ostream* os = out.getSTLStream();
        EXPECT_EQ(os, out.getSTLStream());
        *os << "op" << 7;
        EXPECT_MESSAGE(IllegalState, "BufferedOutputStream::write: getSTLStream() already invoked",
                       out.write("a", 1, 1));
        EXPECT_MESSAGE(IllegalState, "ByteOutputStream::flush: getSTLStream() already invoked", out.flush());
        os->flush();
        EXPECT_EQ("0123456789abcdefghijklmjklmnop7", bytesOf(*sink));
        *os << "q";
        // Replacing the target writes pending bytes to the old one and deletes it.
        auto* second = new RecordingSink();
        out.setTarget(second, false);
        EXPECT_EQ(destroyed + 1, RecordingSink::sDestroyed);
        *os << "rs";
        EXPECT_EQ(second, out.release(true));
        EXPECT_EQ("rs", bytesOf(*second));
        delete second;
    }
    RecordingSink kept;
    {
        BufferedOutputStream out(8, false);
        EXPECT_THROW(out.open(Stream::OM_WRITE), IllegalState);
        out.setTarget(&kept, false);
        out.write("tail", 1, 4);
        out.release(false);
        EXPECT_EQ("", bytesOf(kept)) << "release(false) drops pending bytes";
        out.setTarget(new RecordingSink(), true);
        out.write("end", 1, 3);
    }
    EXPECT_EQ(destroyed + 3, RecordingSink::sDestroyed) << "the destructor deletes an owned target";
}

// Hands out at most mChunk bytes per read, reports mAvailable and counts seeks.
struct ScriptedSource : ByteInputStream {
    ScriptedSource(const char* data, unsigned chunk)
        : ByteInputStream(data, (unsigned)strlen(data), false), mChunk(chunk) {}
    void seek(int offset, ESeekMode mode) override {
        ++mSeeks;
        ByteInputStream::seek(offset, mode);
    }
    unsigned available() const override { return mAvailable; }
    using InputStream::read;
    unsigned read(void* b, unsigned size, unsigned count) override {
        mReads.push_back(size * count);
        return ByteInputStream::read(b, 1, std::min(size * count, mChunk));
    }
    unsigned mChunk, mAvailable = 0;
    int mSeeks = 0;
    std::vector<unsigned> mReads;
};

TEST(BufferedInputStream, RefillRuleSeekAndSTL) {
    ScriptedSource src("abcdefghijklmnopqrstuvwxyz", 4);
    src.seek(2, Stream::SM_BEGIN);
    BufferedInputStream in(&src, 4, false);
    char buf[32] = {};
    EXPECT_EQ(2u, in.tell()) << "starts at the source's position";
    EXPECT_EQ("cde", std::string(buf, in.read(buf, 1, 3)));
    EXPECT_EQ(1u, in.read(buf, 1, 10)) << "returns what is at hand when the source has nothing available";
    EXPECT_EQ("ghij", std::string(buf, in.read(buf, 1, 10))) << "an empty buffer waits for one refill";
    src.mAvailable = 100;
    EXPECT_EQ("klmnopqrst", std::string(buf, in.read(buf, 2, 5)));
    EXPECT_EQ((std::vector<unsigned>{4, 10, 10, 6, 4}), src.mReads) << "large requests bypass the buffer";
    EXPECT_TRUE(in.tell() == 20u && in.available() == 102u);

    in.seek(-1, Stream::SM_CURRENT);
    in.seek(18, Stream::SM_BEGIN);
    EXPECT_EQ(1, src.mSeeks) << "targets inside the buffer stay there";
    EXPECT_EQ("st", std::string(buf, in.read(buf, 1, 2)));
    in.seek(-10, Stream::SM_CURRENT);
    EXPECT_TRUE(src.mSeeks == 2 && in.tell() == 10u);
    EXPECT_TRUE(in.readLine(buf, 3, 'z') == 2u && !strcmp(buf, "kl")) << buf;
    EXPECT_TRUE(in.readLine(buf, 32, 'y') == 12u && !strcmp(buf, "mnopqrstuvwx")) << buf;
    EXPECT_EQ(25u, in.tell()) << "the delimiter is consumed";
    in.seek(1, Stream::SM_END);
    EXPECT_TRUE(!in.eof() && in.read(buf, 1, 5) == 1 && in.eof() && in.read(buf, 1, 5) == 0);

    in.seek(20, Stream::SM_BEGIN);
    in.read(buf, 1, 1);
    std::istream* is = in.getSTLStream();
    std::string rest;
    *is >> rest;
    EXPECT_TRUE(is == in.getSTLStream() && rest == "vwxyz") << "continues with the buffered bytes: " << rest;
    const char* stl = "STL operation mode requested. Unable to perform further InputStream operations!";
    EXPECT_MESSAGE(IllegalState, stl, in.read(buf, 1, 1));
    EXPECT_MESSAGE(IllegalState, stl, in.seek(0, Stream::SM_BEGIN));
    EXPECT_MESSAGE(IllegalState, stl, in.readLine(buf, 4, '\n'));

    // A seek back after a direct read must not be served from the older buffer.
    ByteInputStream plain("abcdefghij", 10, false);
    BufferedInputStream second(&plain, 4, false);
    ASSERT_EQ(2u, second.read(buf, 1, 2)); // buffers "abcd"
    ASSERT_EQ(8u, second.read(buf, 1, 8)); // "cd" from the buffer, "efghij" straight from the source
    second.seek(7, Stream::SM_BEGIN);
    EXPECT_EQ("h", std::string(buf, second.read(buf, 1, 1)));
}

// The same random walk of reads and seeks through every input stream must
// match the reference string byte for byte.
TEST(InputStreams, RandomAccessMatchesReference) {
    tmaintest::TempDir dir;
    std::mt19937 rng(20240521);
    std::string ref(200000, '\0');
    for (char& ch : ref)
        ch = (char)(rng() & 0xFF);
    const std::string name = dir.file("random.bin");
    tmaintest::writeFile(name, ref);
    static const unsigned bufferSizes[] = {1, 7, 4096, 65536};
    for (int variant = 0; variant < 6; ++variant) {
        const unsigned bufferSize = bufferSizes[variant % 4];
        // Memory or file, buffered in four sizes, then each on its own.
        InputStream* base = variant % 2
                                ? (InputStream*)new ByteInputStream(ref.data(), (unsigned)ref.size(), false)
                                : new FileInputStream(name.c_str(), variant == 4 ? 100 : 512);
        std::unique_ptr<InputStream> in(variant < 4 ? new BufferedInputStream(base, bufferSize, true) : base);
        in->open(RB);
        size_t pos = 0;
        std::vector<char> buf(3 * 65536);
        for (int step = 0; step < 400; ++step) {
            int op = rng() % 4;
            if (op < 2) {
                unsigned want = rng() % (op ? 3 * bufferSize + 2 : 70000);
                unsigned got = in->read(buf.data(), 1, want);
                ASSERT_EQ(std::min<size_t>(want, ref.size() - pos), got) << variant << "/" << step;
                ASSERT_EQ(0, memcmp(buf.data(), ref.data() + pos, got)) << variant << "/" << step;
                pos += got;
            } else {
                size_t target = rng() % (ref.size() + 1);
                if (op == 2)
                    in->seek((int)target, Stream::SM_BEGIN);
                else if (rng() % 2)
                    in->seek((int)((long long)target - (long long)pos), Stream::SM_CURRENT);
                else
                    in->seek((int)(ref.size() - target), Stream::SM_END);
                pos = target;
            }
            ASSERT_EQ(pos, in->tell()) << variant << "/" << step;
            ASSERT_EQ(pos == ref.size(), in->eof()) << variant << "/" << step;
        }
    }
}

TEST(FileStreams, OpenReadWriteAndMessages) {
    tmaintest::TempDir dir;
    const std::string text = dir.file("text.txt"), missing = dir.file("missing.bin"),
                      out = dir.file("out.bin");
    tmaintest::writeFile(text, "one\r\ntwo\r\nthree");

    FileInputStream absent(missing.c_str(), 64);
    char buf[64];
    EXPECT_MESSAGE(IllegalState, "File '" + missing + "' not yet opened", absent.read(buf, 1, 1));
    EXPECT_MESSAGE(IOException, "Unable to open file '" + missing + "' for input", absent.open(RB));
    EXPECT_THROW(FileInputStream(dir.path().c_str(), 64).open(RB), IOException);

    FileInputStream bin(text.c_str(), 4);
    bin.open(RB);
    EXPECT_MESSAGE(IllegalState, "File '" + text + "' is already open", bin.open(RB));
    std::ofstream(text, std::ios::app) << "grown";
    EXPECT_TRUE(bin.getFileSize() == 15u && bin.available() == 15u) << "measured at open";
    EXPECT_EQ("one\r\ntwo\r\nthreegrown", std::string(buf, bin.read(buf, 1, sizeof buf)));
    EXPECT_TRUE(bin.eof());
    bin.seek(5, Stream::SM_BEGIN);
    EXPECT_TRUE(bin.readLine(buf, 64, '\r') == 3u && !strcmp(buf, "two")) << buf;
    EXPECT_THROW(bin.seek(-1, Stream::SM_BEGIN), IOException);
    bin.close();

    FileInputStream txt(text.c_str(), 4);
    txt.open(Stream::OM_READ);
    EXPECT_TRUE(txt.readLine(buf, 64, '\n') == 3u && !strcmp(buf, "one")) << buf;
    EXPECT_EQ("two\nthreegrown", std::string(buf, txt.read(buf, 1, sizeof buf))) << "text mode drops CRs";
    EXPECT_EQ(20u, txt.tell()) << "the position counts the file's bytes";

    if (std::ifstream("/proc/self/mem")) {
        FileInputStream mem("/proc/self/mem", 64);
        mem.open(RB);
        EXPECT_MESSAGE(IOException, "Stream reading error!", mem.read(buf, 1, 8));
        EXPECT_TRUE(mem.hasError());
    }

    FileOutputStream fo(out);
    EXPECT_MESSAGE(IllegalState, "Output stream for file '" + out + "' not yet opened", fo.write("a", 1, 1));
    const Stream::EOpenMode rw = Stream::OM_READ | Stream::OM_WRITE | Stream::OM_BINARY;
    EXPECT_MESSAGE(IOException, "Unable to open file '" + out + "' for output", fo.open(rw));
    fo.open(rw | Stream::OM_TRUNCATE);
    EXPECT_MESSAGE(IllegalState, "File '" + out + "' is already opened", fo.open(rw));
    fo.setEndianness(tarso::platform::ENDIAN_BIG);
    ASSERT_TRUE(fo.write(1) && fo.write(std::string("abc")));
    fo.seek(2, Stream::SM_BEGIN);
    EXPECT_EQ(std::string("\0\1\0\0", 4), std::string(buf, fo.read(buf, 2, 2)));
    fo.write("XY", 1, 2);
    EXPECT_EQ(8u, fo.tell());
    fo.flush();
    EXPECT_EQ(std::string("\0\0\0\1\0\0XYabc", 11), readFile(out));
    *fo.getSTLStream() << "++";
    fo.write("!", 1, 1);
    fo.close();
    EXPECT_EQ(std::string("\0\0\0\1\0\0XY++!", 11), readFile(out));

    FileOutputStream appender(out);
    appender.open(Stream::OM_WRITE | Stream::OM_APPEND | Stream::OM_BINARY);
    EXPECT_EQ(11u, appender.getFileSize());
    BufferedOutputStream buffered(3, &appender, false);
    buffered.write("tail", 1, 4);
    buffered.close();
    EXPECT_FALSE(appender.isOpen());
    EXPECT_EQ(std::string("\0\0\0\1\0\0XY++!tail", 15), readFile(out));
}

// Streams share no state: one buffered file pair per thread.
TEST(FileStreams, OnePairPerThread) {
    tmaintest::TempDir dir;
    std::vector<int> ok(4, 0);
    tmaintest::onThreads(4, [&](int t) {
        const std::string data = tmaintest::randomBytes(100000 + t * 977, t),
                          name = dir.file(std::to_string(t));
        BufferedOutputStream out(1000 + t, new FileOutputStream(name), true);
        out.open(Stream::OM_WRITE | Stream::OM_BINARY);
        for (size_t at = 0; at < data.size(); at += 3001)
            out.write(data.data() + at, 1, (unsigned)std::min<size_t>(3001, data.size() - at));
        out.close();
        BufferedInputStream in(new FileInputStream(name.c_str(), 512), 777 + t, true);
        in.open(RB);
        std::string back, buf(5000, '\0');
        while (unsigned got = in.read(&buf[0], 1, 5000))
            back.append(buf, 0, got);
        ok[t] = back == data;
    });
    EXPECT_EQ(std::vector<int>(4, 1), ok);
}

} // namespace
