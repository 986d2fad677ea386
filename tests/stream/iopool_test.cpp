// Stream I/O pool: round-robin threads named "IOThread", read/write/open
// tasks, result codes, and load from several caller threads.
#include "../support/TestSupport.h"
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <thread>
#include <tmain/foundation/Thread.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/StreamIOPool.h>
#include <vector>

using namespace tarso::stream;

namespace {

// Serves `chunk` bytes per call from a string; records the worker's thread;
// can throw on demand.
class ScriptedStream : public InputStream {
public:
    ScriptedStream(std::string data, unsigned chunk) : mData(std::move(data)), mChunk(chunk) {}
    using InputStream::read;
    void open(EOpenMode) override {
        threadName = core::Thread::getCurrentThreadName();
        if (failOpen == 1)
            throw IOException("cannot open");
        if (failOpen == 2)
            throw core::IllegalStateException("odd state");
        mOpen = true;
    }
    void close() override { mOpen = false; }
    bool isOpen() const override { return mOpen; }
    bool hasError() const override { return false; }
    unsigned available() const override { return (unsigned)(mData.size() - mPos); }
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        threadId = std::this_thread::get_id();
        ++calls;
        if (throwKind == 1)
            throw ReadTimeoutException(nullptr);
        if (throwKind == 2)
            throw StreamAbortedException("aborted by %s", "user");
        if (throwKind == 3)
            throw core::IllegalArgumentException("bad %d", 7);
        if (throwKind == 4)
            throw 42;
        unsigned n = std::min<unsigned>(std::min(size * count, mChunk), (unsigned)(mData.size() - mPos));
        memcpy(buffer, mData.data() + mPos, n);
        mPos += n;
        return n;
    }
    unsigned readLine(char*, int, char) override { return 0; }
    bool eof() const override { return mPos >= mData.size(); }
    std::istream* getSTLStream() override { return nullptr; }

    std::thread::id threadId;
    std::string threadName;
    int calls = 0;
    int throwKind = 0;
    int failOpen = 0;

private:
    std::string mData;
    unsigned mChunk;
    size_t mPos = 0;
    bool mOpen = false;
};

TEST(StreamIOPool, ConfigureRoundRobinAndTaskRules) {
    StreamIOPool::deleteSingleton();
    EXPECT_FALSE(StreamIOPool::configure(StreamIOPool::Config{2}));
    EXPECT_EQ(2u, StreamIOPool::sNumThreads);
    StreamIOPool* pool = StreamIOPool::getSingleton();
    EXPECT_TRUE(StreamIOPool::sInitialized);
    EXPECT_TRUE(StreamIOPool::configure(StreamIOPool::Config{7})); // too late: unchanged
    EXPECT_EQ(2u, StreamIOPool::sNumThreads);
    EXPECT_EQ(2u, pool->getThreadCount());

    // Three reads go to threads 0, 1, 0; a short-reading stream is read to
    // the full count.
    std::string data = tmaintest::randomBytes(1000, 1);
    ScriptedStream s1(data, 100), s2(data, 100), s3(data, 100);
    char b1[1000], b2[1000], b3[2000];
    auto f1 = s1.readAsync(b1, 1, 1000);
    auto f2 = s2.readAsync(b2, 1, 1000);
    auto f3 = s3.readAsync(b3, 1, 2000); // more than there is: stops at the end
    ASSERT_TRUE(f1.wait() && f2.wait() && f3.wait());
    EXPECT_EQ(1000u, f1.getResult());
    EXPECT_EQ(10, s1.calls);
    EXPECT_EQ(1000u, f3.getResult());
    EXPECT_EQ(0, memcmp(b1, data.data(), 1000));
    EXPECT_EQ(s1.threadId, s3.threadId);
    EXPECT_NE(s1.threadId, s2.threadId);

    // Open runs on a worker named "IOThread".
    ScriptedStream o("", 1);
    auto fo = o.openAsync(Stream::OM_READ);
    ASSERT_TRUE(fo.wait());
    EXPECT_FALSE(fo.hasError());
    EXPECT_TRUE(o.isOpen());
    EXPECT_EQ("IOThread", o.threadName);

    // A write task writes once, however much the stream took.
    ByteOutputStream out(16, 16);
    out.open(Stream::OM_WRITE);
    auto fw = out.writeAsync(data.data(), 1, 1000);
    ASSERT_TRUE(fw.wait());
    EXPECT_EQ(1000u, fw.getResult());
    EXPECT_EQ(0, memcmp(out.getBytes(), data.data(), 1000));
}

TEST(StreamIOPool, FailuresBecomeResultCodes) {
    struct Case {
        int kind;
        int code;
        const char* message;
    } cases[] = {{1, StreamIOPool::RD_TIMEOUT_ERROR, "read-timeout"},
                 {2, StreamIOPool::RD_STREAMABORTED_ERROR, "aborted by user"},
                 {3, StreamIOPool::RD_UNKNOWN_ERROR, "bad 7"},
                 {4, 0, "StreamIOPool: unknown error reading stream"}};
    for (const Case& c : cases) {
        ScriptedStream s("abc", 1);
        s.throwKind = c.kind;
        char b[3];
        auto f = s.readAsync(b, 1, 3);
        ASSERT_TRUE(f.wait());
        EXPECT_TRUE(f.hasError());
        EXPECT_EQ(c.code, f.getErrorCode());
        EXPECT_EQ(c.message, f.getErrorMessage());
    }
    ScriptedStream io("", 1), other("", 1);
    io.failOpen = 1;
    other.failOpen = 2;
    auto f1 = io.openAsync(Stream::OM_READ), f2 = other.openAsync(Stream::OM_READ);
    ASSERT_TRUE(f1.wait() && f2.wait());
    EXPECT_EQ(StreamIOPool::OPEN_IO_ERROR, f1.getErrorCode());
    EXPECT_EQ("cannot open", f1.getErrorMessage());
    EXPECT_EQ(StreamIOPool::OPEN_UNKNOWN_ERROR, f2.getErrorCode());
    EXPECT_EQ("odd state", f2.getErrorMessage());
}

TEST(StreamIOPool, ManyCallersManyStreamsCheckedByteForByte) {
    const int kCallers = 6, kPerCaller = 40;
    std::vector<std::thread> callers;
    std::atomic<int> bad{0};
    for (int c = 0; c < kCallers; ++c)
        callers.emplace_back([c, &bad] {
            std::vector<std::unique_ptr<ScriptedStream>> streams;
            std::vector<std::unique_ptr<ByteOutputStream>> outs;
            std::vector<std::string> buffers;
            std::vector<core::Future<unsigned>> reads, writes;
            std::vector<std::string> data;
            for (int i = 0; i < kPerCaller; ++i) {
                data.push_back(tmaintest::randomBytes(500 + 37 * i, c * 1000 + i));
                streams.emplace_back(new ScriptedStream(data.back(), 61));
                buffers.emplace_back(data.back().size(), '\0');
                outs.emplace_back(new ByteOutputStream(64, 64));
                outs.back()->open(Stream::OM_WRITE);
            }
            for (int i = 0; i < kPerCaller; ++i) {
                reads.push_back(streams[i]->readAsync(&buffers[i][0], 1, (unsigned)buffers[i].size()));
                writes.push_back(outs[i]->writeAsync(data[i].data(), 1, (unsigned)data[i].size()));
            }
            for (int i = 0; i < kPerCaller; ++i) {
                if (!reads[i].wait() || reads[i].getResult() != data[i].size() || buffers[i] != data[i])
                    ++bad;
                if (!writes[i].wait() || writes[i].getResult() != data[i].size() ||
                    memcmp(outs[i]->getBytes(), data[i].data(), data[i].size()) != 0)
                    ++bad;
            }
        });
    for (auto& t : callers)
        t.join();
    EXPECT_EQ(0, bad.load());
}

} // namespace
