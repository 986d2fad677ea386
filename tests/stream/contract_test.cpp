#include "../support/TestSupport.h"
#include <cstring>
#include <memory>
#include <string>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/STLInputStream.h>
#include <tmain/stream/STLOutputStream.h>
#include <tmain/stream/Utils.h>

using namespace tarso::stream;
using tarso::platform::ENDIAN_BIG;
using tarso::platform::ENDIAN_LITTLE;
using tmaintest::bytesOf;

namespace {

template <class T> T readBack(InputStream& in) {
    T v{};
    EXPECT_TRUE(in.read(v));
    return v;
}

// Minimal adapters: the STL side is what is under test here.
class StringSource : public STLInputStream {
public:
    StringSource(const std::string& data, unsigned bufferSize)
        : STLInputStream(bufferSize), mIn(data.data(), (unsigned)data.size(), true) {}
    void open(EOpenMode) override {}
    bool isOpen() const override { return true; }
    bool hasError() const override { return false; }
    unsigned available() const override { return mIn.available(); }
    using InputStream::read;
    unsigned read(void* b, unsigned size, unsigned count) override {
        ++mReads;
        return mIn.read(b, size, count);
    }
    unsigned readLine(char*, int, char) override { return 0; }
    bool eof() const override { return mIn.eof(); }
    ByteInputStream mIn;
    int mReads = 0;
};

// Overrides neither seek nor tell, so both keep Stream's defaults.
class StringSink : public STLOutputStream {
public:
    explicit StringSink(unsigned bufferSize) : STLOutputStream(bufferSize) {}
    void open(EOpenMode) override {}
    bool isOpen() const override { return true; }
    bool hasError() const override { return false; }
    using OutputStream::write;
    unsigned write(const void* b, unsigned size, unsigned count) override {
        mData.append(static_cast<const char*>(b), (size_t)size * count);
        return size * count;
    }
    void flush() override {}
    std::string mData;
};

TEST(StreamContract, TypedValuesInBothByteOrders) {
    for (auto order : {ENDIAN_LITTLE, ENDIAN_BIG}) {
        ByteOutputStream out;
        out.open(Stream::OM_WRITE);
        out.setEndianness(order);
        const short shorts[2] = {0x0102, -2};
        const int ints[2] = {7, -7};
        const float floats[1] = {-2.5f};
        ASSERT_TRUE(out.write(1) && out.write(1.0f) && out.write((short)0x0A0B) && out.write(123456789L) &&
                    out.write(true) && out.write(std::string("hey")) && out.write(shorts, 2) &&
                    out.write(ints, 2) && out.write(floats, 1) && out.write(0xFFFFFFFFu));
        auto n = [order](unsigned v, int bytes) { // v in `bytes` bytes of the stream's order
            std::string r;
            for (int i = 0; i < bytes; ++i)
                r += (char)(v >> 8 * (order == ENDIAN_BIG ? bytes - 1 - i : i));
            return r;
        };
        const std::string floatBytes("\0\0\x80\x3F\0\0\x20\xC0", 8); // 1.0f and -2.5f: never swapped
        ASSERT_EQ(n(1, 4) + floatBytes.substr(0, 4) + n(0x0A0B, 2) + n(123456789, 4) + "\1" + n(3, 4) +
                      "hey" + n(0x0102, 2) + n(0xFFFE, 2) + n(7, 4) + n(-7, 4) + floatBytes.substr(4) +
                      n(0xFFFFFFFFu, 4),
                  bytesOf(out));

        ByteInputStream in(out.getBytes(), out.getSize(), false);
        in.setEndianness(order);
        EXPECT_TRUE(readBack<int>(in) == 1 && readBack<float>(in) == 1.0f && readBack<short>(in) == 0x0A0B &&
                    readBack<long>(in) == 123456789L && readBack<bool>(in) &&
                    readBack<std::string>(in) == "hey");
        short s2[2] = {};
        int i2[2] = {};
        float f1[1] = {};
        ASSERT_TRUE(in.read(s2, 2) && in.read(i2, 2) && in.read(f1, 1));
        EXPECT_TRUE(s2[0] == 0x0102 && s2[1] == -2 && i2[0] == 7 && i2[1] == -7 && f1[0] == -2.5f);
        EXPECT_EQ(0xFFFFFFFFu, readBack<unsigned>(in));
        EXPECT_FALSE(in.read(i2[0])) << "nothing left";
    }
    // A length prefix larger than the data fails without allocating it.
    ByteInputStream huge("\xFF\xFF\xFF\177abc", 7, false);
    std::string s;
    EXPECT_FALSE(huge.read(s));
    EXPECT_EQ("abc", s);
}

TEST(StreamContract, BookmarksNestAndDefaultPositionMessages) {
    ByteInputStream in("0123456789", 10, false);
    EXPECT_MESSAGE(core::IllegalStateException, "Cannot rewind. No bookmarks defined yet.", in.rewind());
    in.seek(2, Stream::SM_BEGIN);
    in.bookMark();
    in.seek(5, Stream::SM_BEGIN);
    in.bookMark();
    in.seek(9, Stream::SM_BEGIN);
    EXPECT_EQ(2u, in.getBookmarkCount());
    auto rewound = [&in] {
        in.rewind();
        return in.tell();
    };
    EXPECT_TRUE(rewound() == 5u && rewound() == 2u);
    EXPECT_THROW(in.rewind(), core::IllegalStateException);

    StringSink np(4);
    EXPECT_MESSAGE(core::UnsupportedOperationException, "Stream::tell() not supported", np.tell());
    EXPECT_MESSAGE(core::UnsupportedOperationException, "Stream::tell() not supported",
                   np.seek(0, Stream::SM_BEGIN));
    EXPECT_THROW(np.bookMark(), core::UnsupportedOperationException);
}

TEST(StreamContract, UtilsCountsAndChecks) {
    ByteOutputStream out;
    out.open(Stream::OM_WRITE);
    out.setEndianness(ENDIAN_BIG);
    const int ints[3] = {1, 2, 3};
    const float floats[2] = {1.0f, 2.0f};
    ASSERT_TRUE(Utils::write("abcd", 4, &out) && Utils::write(ints, 3, &out) &&
                Utils::write(floats, 2, &out) && Utils::write(std::string("xy"), &out));
    std::string b = bytesOf(out);
    EXPECT_EQ(std::string("\0\0\0\4abcd\0\0\0\3\0\0\0\1", 16), b.substr(0, 16));
    EXPECT_EQ(std::string("\0\0\0\2\0\0\x80\x3F", 8), b.substr(24, 8));

    ByteInputStream in(out.getBytes(), out.getSize(), false);
    in.setEndianness(ENDIAN_BIG);
    char chars[8] = "XXXXXXX";
    EXPECT_FALSE(Utils::read(chars, 3, &in)) << "stored count 4 differs though 3 is smaller";
    in.seek(0, Stream::SM_BEGIN);
    EXPECT_FALSE(Utils::read(chars, 5, &in));
    in.seek(0, Stream::SM_BEGIN);
    int readInts[3] = {};
    float readFloats[2] = {};
    ASSERT_TRUE(Utils::read(chars, 4, &in) && Utils::read(readInts, 3, &in) &&
                Utils::read(readFloats, 2, &in));
    EXPECT_EQ("abcdX", std::string(chars, 5)) << "no terminator added";
    EXPECT_TRUE(readInts[0] == 1 && readInts[2] == 3 && readFloats[1] == 2.0f);
    std::string s;
    EXPECT_TRUE(Utils::read(s, &in) && s == "xy");
    EXPECT_FALSE(Utils::read(readInts, 3, &in)) << "at the end";

    const void* obj = reinterpret_cast<const void*>(0x1234ABCD);
    EXPECT_NO_THROW(Utils::checkWrite(true, obj, "f"); Utils::checkRead(true, obj, nullptr));
    EXPECT_MESSAGE(IOException, "Error serializing object [@1234ABCD]: name",
                   Utils::checkWrite(false, obj, "name"));
    EXPECT_MESSAGE(IOException, "Error serializing object [@      AB]",
                   Utils::checkWrite(false, reinterpret_cast<const void*>(0xAB), nullptr));
    EXPECT_MESSAGE(IOException, "Error deserializing object [1234ABCD]: name",
                   Utils::checkRead(false, obj, "name"));
    EXPECT_MESSAGE(IOException, "Error deserializing object [@1234ABCD]",
                   Utils::checkRead(false, obj, nullptr));
}

TEST(StreamContract, ExceptionsKeepTypeAndMessages) {
    EXPECT_JOINED("timeout|connect-timeout|read-timeout|write-timeout|after 5 s|tarso::stream::IOException|"
                  "tarso::stream::WriteTimeoutException|1|0|",
                  TimeoutException().getMessage(), ConnectTimeoutException().getMessage(),
                  ReadTimeoutException(nullptr).getMessage(), WriteTimeoutException().getMessage(),
                  ReadTimeoutException("after %d s", 5).getMessage(), IOException::TYPE.getName(),
                  WriteTimeoutException::type().getName(),
                  ConnectTimeoutException().instanceOf(IOException::TYPE),
                  StreamAbortedException("x").instanceOf(TimeoutException::TYPE));

    // A long formatted message is truncated at the format's length plus 1024.
    EXPECT_EQ(std::strlen("long %s") + 1023,
              std::strlen(IOException("long %s", std::string(3000, 'z').c_str()).getMessage()));

    IOException cause("disk %s", "gone");
    StreamAbortedException aborted("aborted", &cause);
    ASSERT_NE(nullptr, aborted.getCause());
    EXPECT_STREQ("disk gone", aborted.getCause()->getMessage());

    std::unique_ptr<core::Exception> clone(ReadTimeoutException("late").clone()),
        abortedClone(aborted.clone());
    EXPECT_JOINED("tarso::stream::ReadTimeoutException|disk gone|", clone->getType().getName(),
                  abortedClone->getCause()->getMessage());
    EXPECT_MESSAGE(ReadTimeoutException, "late", clone->rethrow());
    try {
        static_cast<const IOException&>(*abortedClone).throwSame();
        FAIL();
    } catch (const IOException& e) {
        EXPECT_STREQ("aborted", e.getMessage());
        EXPECT_STREQ("tarso::stream::IOException", e.getType().getName())
            << "throwSame throws an IOException copy";
    }
}

TEST(StreamContract, STLAdaptersRoundTrip) {
    StringSink sink(4);
    std::ostream* os = sink.getSTLStream();
    *os << "alpha " << 12345 << ' ' << 2.5 << "\nline two";
    EXPECT_EQ("alpha 12345 2.5\nline", sink.mData) << "only full 4-byte buffers reach the sink";
    os->flush();
    EXPECT_TRUE(os == sink.getSTLStream() && sink.mData == "alpha 12345 2.5\nline two") << sink.mData;
    *os << "!";
    sink.close();
    EXPECT_EQ("alpha 12345 2.5\nline two!", sink.mData) << "close writes what is buffered";

    StringSource source(sink.mData, 3);
    std::istream* is = source.getSTLStream();
    std::string word, line;
    int n = 0;
    double d = 0;
    *is >> word >> n >> d;
    is->ignore(1);
    std::getline(*is, line);
    EXPECT_TRUE(word == "alpha" && n == 12345 && d == 2.5 && line == "line two!") << word << n << d << line;
    EXPECT_TRUE(is->eof() && is == source.getSTLStream());
    EXPECT_EQ(9, source.mReads) << "25 bytes in refills of 3, none after the end";
}

} // namespace
