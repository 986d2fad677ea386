#include <gtest/gtest.h>
#include <tmain/stream/BufferedInputStream.h>
#include <tmain/stream/BufferedOutputStream.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/FileOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/StreamIOPool.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace tarso::stream;
namespace fs = std::filesystem;

namespace {

template <class E, class F> std::string messageOf(F f) {
    try {
        f();
    } catch (const E& e) {
        return e.getMessage();
    }
    return "<no exception>";
}

struct TempDir {
    fs::path path;
    TempDir() {
        static int counter = 0;
        path = fs::temp_directory_path() /
               ("tmain_streams_" + std::to_string(getpid()) + "_" + std::to_string(++counter));
        fs::create_directories(path);
    }
    ~TempDir() { fs::remove_all(path); }
    std::string file(const char* name) const { return (path / name).string(); }
};

std::string slurp(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void spit(const std::string& name, const std::string& data) {
    std::ofstream(name, std::ios::binary) << data;
}

const Stream::EOpenMode RB = Stream::OM_READ | Stream::OM_BINARY;

TEST(ByteInputStream, CopySeekReadLineAndSTL) {
    char data[] = "ab\ncd\n\nlong-line\nz";
    const unsigned size = (unsigned)strlen(data);
    ByteInputStream copied(data, size, true), borrowed(data, size, false);
    data[0] = 'X';
    char c = 0;
    ASSERT_TRUE(copied.read(c));
    EXPECT_EQ('a', c);
    ASSERT_TRUE(borrowed.read(c));
    EXPECT_EQ('X', c);

    copied.seek(0, Stream::SM_END);
    EXPECT_TRUE(copied.eof());
    EXPECT_EQ(0u, copied.read(&c, 1, 1));
    copied.seek(3, Stream::SM_END);
    EXPECT_EQ(size - 3, copied.tell());
    copied.seek(-1000, Stream::SM_CURRENT);
    EXPECT_EQ(0u, copied.tell()) << "a target before the start is the start";
    copied.seek(INT_MAX, Stream::SM_CURRENT);
    EXPECT_EQ(size, copied.tell());
    copied.seek(INT_MIN, Stream::SM_END);
    EXPECT_EQ(size, copied.tell());
    EXPECT_THROW(copied.seek(0, (Stream::ESeekMode)0), core::IllegalArgumentException);
    copied.seek(0, Stream::SM_BEGIN);
    std::vector<char> all(size);
    EXPECT_EQ(size, copied.read(all.data(), 0x10000, 0x10000)) << "size*count beyond 32 bits";
    EXPECT_EQ(std::string("ab\ncd", 5), std::string(all.data(), 5));

    copied.seek(0, Stream::SM_BEGIN);
    char line[16];
    const char* expected[] = {"ab", "cd", "", "long", "-lin", "e", "z", ""};
    const int capacities[] = {16, 16, 16, 5, 5, 5, 16, 16};
    for (int i = 0; i < 8; ++i) {
        memset(line, '#', sizeof line);
        EXPECT_EQ(strlen(expected[i]), copied.readLine(line, capacities[i], '\n')) << i;
        EXPECT_STREQ(expected[i], line) << i;
    }
    EXPECT_EQ(0u, copied.readLine(line, 0, '\n'));
    line[0] = '#';
    EXPECT_EQ(0u, copied.readLine(line, 1, '\n'));
    EXPECT_EQ('\0', line[0]);

    copied.seek(3, Stream::SM_BEGIN);
    std::istream* is = copied.getSTLStream();
    EXPECT_EQ(is, copied.getSTLStream());
    std::string word;
    *is >> word;
    EXPECT_EQ("cd", word);
    is->seekg(0);
    *is >> word;
    EXPECT_EQ("ab", word);
    EXPECT_EQ(std::streampos(-1), is->seekg(100).tellg());
    // Passing our own copy back without copying must not leave it dangling.
    copied.setInput(copied.getBytes() + 3, 2, false);
    is->clear();
    *is >> word;
    EXPECT_EQ("cd", word);
    EXPECT_THROW(copied.setInput(nullptr, 3, false), core::IllegalArgumentException);
    copied.setInput(nullptr, 0, true);
    EXPECT_TRUE(copied.eof());
}

TEST(ByteOutputStream, CapacityGrowthSeekAndMessages) {
    ByteOutputStream out(300, 256);
    EXPECT_EQ(512u, out.getCapacity());
    EXPECT_EQ("ByteOutputStream: stream not yet opened",
              messageOf<core::IllegalStateException>([&] { out.write("a", 1, 1); }));
    EXPECT_EQ("ByteOutputStream: stream not yet opened",
              messageOf<core::IllegalStateException>([&] { out.flush(); }));
    out.open(Stream::OM_WRITE);
    std::string data(600, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = (char)(i * 7);
    EXPECT_EQ(600u, out.write(data.data(), 2, 300));
    EXPECT_EQ(768u, out.getCapacity());
    EXPECT_EQ(data, std::string((const char*)out.getBytes(), out.getSize()));

    EXPECT_EQ("ByteOutputStream:seek:invalid offset (768 not in range [0,768])",
              messageOf<IOException>([&] { out.seek(768, Stream::SM_BEGIN); }));
    EXPECT_EQ("ByteOutputStream:seek:invalid offset (-1 not in range [0,768])",
              messageOf<IOException>([&] { out.seek(-1, Stream::SM_BEGIN); }));
    EXPECT_EQ("ByteOutputStream:seek:invalid offset (2147484247 not in range [0,768])",
              messageOf<IOException>([&] { out.seek(INT_MAX, Stream::SM_CURRENT); }));
    EXPECT_EQ(600u, out.tell()) << "a failed seek does not move";
    out.seek(767, Stream::SM_BEGIN);
    out.seek(1, Stream::SM_END);
    EXPECT_EQ(767u, out.tell()) << "SM_END counts back from the capacity";
    EXPECT_THROW(out.seek(0, Stream::SM_END), IOException);
    out.seek(10, Stream::SM_BEGIN);
    EXPECT_EQ(10u, out.getSize()) << "the size is the position";
    EXPECT_EQ("ByteOutputStream: could not allocate data",
              messageOf<core::IllegalStateException>([&] { out.write(data.data(), 0x10000, 0x10000); }));
    EXPECT_THROW(ByteOutputStream(1, 0), core::IllegalArgumentException);

    std::ostream* os = out.getSTLStream();
    EXPECT_EQ(os, out.getSTLStream());
    *os << "xyz" << 42;
    EXPECT_EQ(15, os->tellp());
    EXPECT_EQ(std::string(data.data(), 10) + "xyz42",
              std::string((const char*)out.getBytes(), out.getSize()));
    EXPECT_EQ("ByteOutputStream: getSTLStream() already invoked",
              messageOf<core::IllegalStateException>([&] { out.write("a", 1, 1); }));
    EXPECT_EQ("ByteOutputStream: getSTLStream() already invoked",
              messageOf<core::IllegalStateException>([&] { out.flush(); }));
}

// Records every write; takes at most mLimit bytes per call.
class RecordingSink : public OutputStream {
public:
    explicit RecordingSink(bool* deleted = nullptr) : mDeleted(deleted) {}
    ~RecordingSink() override {
        if (mDeleted)
            *mDeleted = true;
    }
    void open(EOpenMode) override { mOpen = true; }
    void close() override { mOpen = false; }
    bool isOpen() const override { return mOpen; }
    unsigned tell() const override { return (unsigned)mData.size(); }
    bool hasError() const override { return false; }
    using OutputStream::write;
    unsigned write(const void* b, unsigned size, unsigned count) override {
        unsigned n = std::min(size * count, mLimit);
        mCalls.push_back(n);
        mData.append(static_cast<const char*>(b), n);
        return n;
    }
    void flush() override {}
    std::ostream* getSTLStream() override { return nullptr; }
    bool* mDeleted;
    bool mOpen = true;
    unsigned mLimit = UINT_MAX;
    std::string mData;
    std::vector<unsigned> mCalls;
};

TEST(BufferedOutputStream, ThreeWayWriteFlushAndOwnership) {
    bool deleted = false;
    auto* sink = new RecordingSink(&deleted);
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
        EXPECT_EQ("0123456789abcdefghijklm", sink->mData);

        sink->mLimit = 0;
        out.write("jk", 1, 2);
        EXPECT_EQ("BufferedOutputStream: the target took 0 of 2 bytes",
                  messageOf<IOException>([&] { out.flush(); }));
        sink->mLimit = 1;
        out.write("l", 1, 1);
        out.flush();
        EXPECT_EQ("0123456789abcdefghijklmjkl", sink->mData) << "refused bytes stay buffered, in order";

        sink->close();
        EXPECT_EQ("BufferedOutputStream::write: stream not yet opened",
                  messageOf<core::IllegalStateException>([&] { out.write("a", 1, 1); }));
        EXPECT_EQ("BufferedOutputStream::flush: stream not yet opened",
                  messageOf<core::IllegalStateException>([&] { out.flush(); }));
        out.open(Stream::OM_WRITE);
        sink->mLimit = UINT_MAX;
        out.write("mn", 1, 2);
        std::ostream* os = out.getSTLStream();
        EXPECT_EQ(os, out.getSTLStream());
        *os << "op" << 7;
        EXPECT_EQ("BufferedOutputStream::write: getSTLStream() already invoked",
                  messageOf<core::IllegalStateException>([&] { out.write("a", 1, 1); }));
        EXPECT_EQ("ByteOutputStream::flush: getSTLStream() already invoked",
                  messageOf<core::IllegalStateException>([&] { out.flush(); }));
        os->flush();
        EXPECT_EQ("0123456789abcdefghijklmjklmnop7", sink->mData);
        *os << "q";
        // Replacing the target writes pending bytes to the old one and deletes it.
        auto* second = new RecordingSink();
        out.setTarget(second, false);
        EXPECT_TRUE(deleted);
        *os << "rs";
        EXPECT_EQ(second, out.release(true));
        EXPECT_EQ("rs", second->mData);
        delete second;
    }
    RecordingSink kept;
    bool gone = false;
    auto* owned = new RecordingSink(&gone);
    {
        BufferedOutputStream out(8, false);
        EXPECT_THROW(out.open(Stream::OM_WRITE), core::IllegalStateException);
        out.setTarget(&kept, false);
        out.write("tail", 1, 4);
        out.release(false);
        EXPECT_EQ("", kept.mData) << "release(false) drops pending bytes";
        out.setTarget(owned, true);
        out.write("end", 1, 3);
    }
    EXPECT_TRUE(gone) << "the destructor writes pending bytes and deletes an owned target";
}

// Hands out at most mChunk bytes per read and reports mAvailable.
class ScriptedSource : public InputStream {
public:
    ScriptedSource(std::string data, unsigned chunk) : mData(std::move(data)), mChunk(chunk) {}
    void open(EOpenMode) override {}
    void close() override {}
    bool isOpen() const override { return true; }
    void seek(int offset, ESeekMode mode) override {
        ++mSeeks;
        mPos = mode == SM_BEGIN ? offset : mode == SM_CURRENT ? mPos + offset : mData.size() - offset;
    }
    unsigned tell() const override { return (unsigned)mPos; }
    bool hasError() const override { return false; }
    unsigned available() const override { return mAvailable; }
    using InputStream::read;
    unsigned read(void* b, unsigned size, unsigned count) override {
        size_t n = std::min({(size_t)size * count, (size_t)mChunk, mData.size() - mPos});
        memcpy(b, mData.data() + mPos, n);
        mPos += n;
        mReads.push_back(size * count);
        return (unsigned)n;
    }
    unsigned readLine(char*, int, char) override { return 0; }
    bool eof() const override { return mPos >= mData.size(); }
    std::istream* getSTLStream() override { return nullptr; }
    std::string mData;
    size_t mPos = 0;
    unsigned mChunk, mAvailable = 0;
    int mSeeks = 0;
    std::vector<unsigned> mReads;
};

TEST(BufferedInputStream, RefillRuleSeekAndSTL) {
    ScriptedSource src("abcdefghijklmnopqrstuvwxyz", 4);
    src.mPos = 2;
    BufferedInputStream in(&src, 4, false);
    EXPECT_EQ(2u, in.tell()) << "starts at the source's position";
    char buf[32] = {};
    EXPECT_EQ(3u, in.read(buf, 1, 3));
    EXPECT_EQ(1u, in.read(buf, 1, 10)) << "returns what is at hand when the source has nothing available";
    EXPECT_EQ(4u, in.read(buf, 1, 10)) << "an empty buffer waits for one refill";
    EXPECT_EQ("ghij", std::string(buf, 4));
    src.mAvailable = 100;
    EXPECT_EQ(10u, in.read(buf, 2, 5));
    EXPECT_EQ("klmnopqrst", std::string(buf, 10));
    EXPECT_EQ((std::vector<unsigned>{4, 10, 10, 6, 4}), src.mReads) << "large requests bypass the buffer";
    EXPECT_EQ(20u, in.tell());
    EXPECT_EQ(102u, in.available());

    in.seek(-1, Stream::SM_CURRENT);
    in.seek(18, Stream::SM_BEGIN);
    EXPECT_EQ(0, src.mSeeks) << "targets inside the buffer stay there";
    EXPECT_EQ(2u, in.read(buf, 1, 2));
    EXPECT_EQ("st", std::string(buf, 2));
    in.seek(-10, Stream::SM_CURRENT);
    EXPECT_EQ(1, src.mSeeks);
    EXPECT_EQ(10u, in.tell());
    EXPECT_EQ(2u, in.readLine(buf, 3, 'z'));
    EXPECT_STREQ("kl", buf);
    EXPECT_EQ(12u, in.readLine(buf, 32, 'y'));
    EXPECT_STREQ("mnopqrstuvwx", buf);
    EXPECT_EQ(25u, in.tell()) << "the delimiter is consumed";
    in.seek(1, Stream::SM_END);
    EXPECT_FALSE(in.eof());
    EXPECT_EQ(1u, in.read(buf, 1, 5));
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(0u, in.read(buf, 1, 5));

    in.seek(20, Stream::SM_BEGIN);
    in.read(buf, 1, 1);
    std::istream* is = in.getSTLStream();
    EXPECT_EQ(is, in.getSTLStream());
    std::string rest;
    *is >> rest;
    EXPECT_EQ("vwxyz", rest) << "continues with the buffered bytes";
    const std::string stl = "STL operation mode requested. Unable to perform further InputStream operations!";
    EXPECT_EQ(stl, messageOf<core::IllegalStateException>([&] { in.read(buf, 1, 1); }));
    EXPECT_EQ(stl, messageOf<core::IllegalStateException>([&] { in.seek(0, Stream::SM_BEGIN); }));
    EXPECT_EQ(stl, messageOf<core::IllegalStateException>([&] { in.readLine(buf, 4, '\n'); }));
}

// The same random walk of reads and seeks through every input stream must
// match the reference string byte for byte.
TEST(InputStreams, RandomAccessMatchesReference) {
    TempDir dir;
    std::mt19937 rng(20240521);
    std::string ref(200000, '\0');
    for (char& ch : ref)
        ch = (char)(rng() & 0xFF);
    const std::string name = dir.file("random.bin");
    spit(name, ref);

    for (int variant = 0; variant < 6; ++variant) {
        static const unsigned bufferSizes[] = {1, 7, 4096, 65536};
        std::unique_ptr<InputStream> in;
        unsigned bufferSize = bufferSizes[variant % 4];
        if (variant == 4)
            in.reset(new ByteInputStream(ref.data(), (unsigned)ref.size(), false));
        else if (variant == 5)
            in.reset(new FileInputStream(name.c_str(), 100));
        else if (variant % 2)
            in.reset(new BufferedInputStream(new ByteInputStream(ref.data(), (unsigned)ref.size(), false),
                                             bufferSize, true));
        else
            in.reset(new BufferedInputStream(new FileInputStream(name.c_str(), 512), bufferSize, true));
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
            } else if (op == 2) {
                pos = rng() % (ref.size() + 1);
                in->seek((int)pos, Stream::SM_BEGIN);
            } else {
                size_t target = rng() % (ref.size() + 1);
                if (rng() % 2) {
                    in->seek((int)((long long)target - (long long)pos), Stream::SM_CURRENT);
                } else {
                    in->seek((int)(ref.size() - target), Stream::SM_END);
                }
                pos = target;
            }
            ASSERT_EQ(pos, in->tell()) << variant << "/" << step;
            ASSERT_EQ(pos == ref.size(), in->eof()) << variant << "/" << step;
        }
    }
}

TEST(FileStreams, OpenReadWriteAndMessages) {
    TempDir dir;
    const std::string text = dir.file("text.txt"), missing = dir.file("missing.bin"),
                      out = dir.file("out.bin");
    spit(text, "one\r\ntwo\r\nthree");

    FileInputStream absent(missing.c_str(), 64);
    char buf[64];
    EXPECT_EQ("File '" + missing + "' not yet opened",
              messageOf<core::IllegalStateException>([&] { absent.read(buf, 1, 1); }));
    EXPECT_EQ("Unable to open file '" + missing + "' for input",
              messageOf<IOException>([&] { absent.open(RB); }));
    FileInputStream directory(dir.path.string().c_str(), 64);
    EXPECT_THROW(directory.open(RB), IOException);

    FileInputStream bin(text.c_str(), 4);
    bin.open(RB);
    EXPECT_EQ("File '" + text + "' is already open",
              messageOf<core::IllegalStateException>([&] { bin.open(RB); }));
    std::ofstream(text, std::ios::app) << "grown";
    EXPECT_EQ(15u, bin.getFileSize()) << "measured at open";
    EXPECT_EQ(15u, bin.available());
    EXPECT_EQ(20u, bin.read(buf, 1, sizeof buf));
    EXPECT_EQ("one\r\ntwo\r\nthreegrown", std::string(buf, 20));
    EXPECT_TRUE(bin.eof());
    bin.seek(5, Stream::SM_BEGIN);
    EXPECT_EQ(3u, bin.readLine(buf, 64, '\r'));
    EXPECT_STREQ("two", buf);
    EXPECT_THROW(bin.seek(-1, Stream::SM_BEGIN), IOException);
    bin.close();

    FileInputStream txt(text.c_str(), 4);
    txt.open(Stream::OM_READ);
    EXPECT_EQ(3u, txt.readLine(buf, 64, '\n'));
    EXPECT_STREQ("one", buf);
    EXPECT_EQ(14u, txt.read(buf, 1, sizeof buf)) << "text mode drops carriage returns";
    EXPECT_EQ("two\nthreegrown", std::string(buf, 14));
    EXPECT_EQ(20u, txt.tell()) << "the position counts the file's bytes";

    FileInputStream mem("/proc/self/mem", 64);
    if (fs::exists("/proc/self/mem")) {
        mem.open(RB);
        EXPECT_EQ("Stream reading error!", messageOf<IOException>([&] { mem.read(buf, 1, 8); }));
        EXPECT_TRUE(mem.hasError());
    }

    FileOutputStream fo(out);
    EXPECT_EQ("Output stream for file '" + out + "' not yet opened",
              messageOf<core::IllegalStateException>([&] { fo.write("a", 1, 1); }));
    const Stream::EOpenMode rw = Stream::OM_READ | Stream::OM_WRITE | Stream::OM_BINARY;
    EXPECT_EQ("Unable to open file '" + out + "' for output", messageOf<IOException>([&] { fo.open(rw); }));
    fo.open(rw | Stream::OM_TRUNCATE);
    EXPECT_EQ("File '" + out + "' is already opened",
              messageOf<core::IllegalStateException>([&] { fo.open(rw); }));
    fo.setEndianness(tarso::platform::ENDIAN_BIG);
    ASSERT_TRUE(fo.write(1) && fo.write(std::string("abc")));
    fo.seek(2, Stream::SM_BEGIN);
    EXPECT_EQ(4u, fo.read(buf, 2, 2));
    EXPECT_EQ(std::string("\0\1\0\0", 4), std::string(buf, 4));
    fo.write("XY", 1, 2);
    EXPECT_EQ(8u, fo.tell());
    fo.flush();
    EXPECT_EQ(std::string("\0\0\0\1\0\0XYabc", 11), slurp(out));
    *fo.getSTLStream() << "++";
    fo.write("!", 1, 1);
    fo.close();
    EXPECT_EQ(std::string("\0\0\0\1\0\0XY++!", 11), slurp(out));

    FileOutputStream appender(out);
    appender.open(Stream::OM_WRITE | Stream::OM_APPEND | Stream::OM_BINARY);
    EXPECT_EQ(11u, appender.getFileSize());
    BufferedOutputStream buffered(3, &appender, false);
    buffered.write("tail", 1, 4);
    buffered.close();
    EXPECT_FALSE(appender.isOpen());
    EXPECT_EQ(std::string("\0\0\0\1\0\0XY++!tail", 15), slurp(out));
}

// Streams share no state: one pair per thread, plus transfers handed to the
// I/O pool's threads.
TEST(FileStreams, OnePairPerThreadAndPoolTransfers) {
    TempDir dir;
    std::vector<std::thread> threads;
    std::vector<int> ok(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            std::string data(100000 + t * 977, '\0');
            for (size_t i = 0; i < data.size(); ++i)
                data[i] = (char)(i * (t + 3));
            const std::string name = dir.file(("t" + std::to_string(t)).c_str());
            {
                BufferedOutputStream out(1000 + t, new FileOutputStream(name), true);
                out.open(Stream::OM_WRITE | Stream::OM_BINARY);
                for (size_t at = 0; at < data.size(); at += 3001)
                    out.write(data.data() + at, 1, (unsigned)std::min<size_t>(3001, data.size() - at));
                out.close();
            }
            BufferedInputStream in(new FileInputStream(name.c_str(), 512), 777 + t, true);
            in.open(RB);
            std::string back(data.size() + 1, '\0');
            unsigned n = 0, got;
            while (n < back.size() &&
                   (got = in.read(&back[n], 1, std::min<unsigned>(5000, (unsigned)back.size() - n))) > 0)
                n += got;
            ok[t] = n == data.size() && back.compare(0, n, data) == 0;
        });
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(std::vector<int>(4, 1), ok);

    ByteOutputStream out;
    out.open(Stream::OM_WRITE);
    std::string data(70000, 'q');
    core::Future<unsigned> w = out.writeAsync(data.data(), 7, 10000);
    ASSERT_TRUE(w.wait());
    EXPECT_EQ(70000u, w.getResult());
    ByteInputStream in(out.getBytes(), out.getSize(), true);
    std::string back(70000, '\0');
    core::Future<unsigned> r = in.readAsync(&back[0], 1, 70000);
    ASSERT_TRUE(r.wait());
    EXPECT_EQ(70000u, r.getResult());
    EXPECT_EQ(data, back);
    StreamIOPool::deleteSingleton();
}

} // namespace
