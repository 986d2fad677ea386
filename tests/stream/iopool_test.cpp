// Stream I/O pool: round-robin threads named "IOThread", read/write/open
// tasks, result codes, and load from several caller threads.
#include "../support/TestSupport.h"
#include <deque>
#include <functional>
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
// runs `failOpen` / `failRead` (which throw) when set.
class ScriptedStream : public ByteInputStream {
public:
    ScriptedStream(const std::string& data, unsigned chunk)
        : ByteInputStream(data.data(), (unsigned)data.size(), true), mChunk(chunk) {}
    using InputStream::read;
    void open(EOpenMode) override {
        threadName = core::Thread::getCurrentThreadName();
        if (failOpen)
            failOpen();
        opened = true;
    }
    bool isOpen() const override { return opened; }
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        threadId = std::this_thread::get_id();
        ++calls;
        if (failRead)
            failRead();
        return ByteInputStream::read(buffer, 1, std::min(size * count, mChunk));
    }

    std::thread::id threadId;
    std::string threadName;
    std::function<void()> failOpen, failRead;
    int calls = 0;
    bool opened = false;

private:
    unsigned mChunk;
};

TEST(StreamIOPool, ConfigureRoundRobinAndTaskRules) {
    StreamIOPool::deleteSingleton();
    EXPECT_FALSE(StreamIOPool::configure(StreamIOPool::Config{2}));
    StreamIOPool* pool = StreamIOPool::getSingleton();
    // Configured again too late: unchanged.
    EXPECT_JOINED("1|1|2|2|", StreamIOPool::sInitialized, StreamIOPool::configure(StreamIOPool::Config{7}),
                  StreamIOPool::sNumThreads, pool->getThreadCount());

    // Three reads go to threads 0, 1, 0; a short-reading stream is read to
    // the full count. Results count bytes, not items.
    std::string data = tmaintest::randomBytes(1000, 1);
    ScriptedStream s1(data, 100), s2(data, 100), s3(data, 100);
    char b1[1000], b2[1000], b3[2000];
    auto f1 = s1.readAsync(b1, 10, 100);
    auto f2 = s2.readAsync(b2, 1, 1000);
    auto f3 = s3.readAsync(b3, 20, 100); // more than there is: stops at the end
    ASSERT_TRUE(f1.wait() && f2.wait() && f3.wait());
    EXPECT_TRUE(f1.getResult() == 1000u && f3.getResult() == 1000u && s1.calls == 10);
    EXPECT_EQ(data, std::string(b1, 1000));
    EXPECT_TRUE(s1.threadId == s3.threadId && s1.threadId != s2.threadId);

    // Open runs on a worker named "IOThread".
    ScriptedStream o("", 1);
    auto fo = o.openAsync(Stream::OM_READ);
    ASSERT_TRUE(fo.wait());
    EXPECT_TRUE(!fo.hasError() && o.isOpen() && o.threadName == "IOThread") << o.threadName;

    // A write task writes once, however much the stream took.
    ByteOutputStream out(16, 16);
    out.open(Stream::OM_WRITE);
    auto fw = out.writeAsync(data.data(), 8, 125);
    ASSERT_TRUE(fw.wait());
    EXPECT_JOINED("1000|1|", fw.getResult(), data == tmaintest::bytesOf(out));
}

TEST(StreamIOPool, FailuresBecomeResultCodes) {
    struct Case {
        bool open;
        void (*fail)();
        int code;
        const char* message;
    } cases[] = {
        {false, [] { throw ReadTimeoutException(nullptr); }, StreamIOPool::RD_TIMEOUT_ERROR, "read-timeout"},
        {false, [] { throw StreamAbortedException("aborted by %s", "user"); },
         StreamIOPool::RD_STREAMABORTED_ERROR, "aborted by user"},
        {false, [] { throw core::IllegalArgumentException("bad %d", 7); }, StreamIOPool::RD_UNKNOWN_ERROR,
         "bad 7"},
        {false, [] { throw 42; }, 0, "StreamIOPool: unknown error reading stream"},
        {true, [] { throw IOException("cannot open"); }, StreamIOPool::OPEN_IO_ERROR, "cannot open"},
        {true, [] { throw core::IllegalStateException("odd state"); }, StreamIOPool::OPEN_UNKNOWN_ERROR,
         "odd state"},
        {true, [] { throw 42; }, 0, "unknown error opening stream"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        ScriptedStream s("abc", 1);
        char b[3];
        (c.open ? s.failOpen : s.failRead) = c.fail;
        auto check = [&c](auto f) {
            ASSERT_TRUE(f.wait() && f.hasError());
            EXPECT_JOINED(std::to_string(c.code) + "|" + c.message + "|", f.getErrorCode(),
                          f.getErrorMessage());
        };
        if (c.open)
            check(s.openAsync(Stream::OM_READ));
        else
            check(s.readAsync(b, 1, 3));
    }
}

// One stream read and one written through the pool, started on construction.
struct Job {
    std::string data, got;
    ScriptedStream in;
    ByteOutputStream out{64, 64};
    core::Future<unsigned> read, write;
    explicit Job(std::string bytes) : data(std::move(bytes)), got(data.size(), '\0'), in(data, 61) {
        out.open(Stream::OM_WRITE);
        read = in.readAsync(&got[0], 1, (unsigned)got.size());
        write = out.writeAsync(data.data(), 1, (unsigned)data.size());
    }
    bool ok() {
        return read.wait() && read.getResult() == data.size() && got == data && write.wait() &&
               write.getResult() == data.size() && tmaintest::bytesOf(out) == data;
    }
};

TEST(StreamIOPool, ManyCallersManyStreamsCheckedByteForByte) {
    std::atomic<int> bad{0};
    tmaintest::onThreads(6, [&bad](int c) {
        std::deque<Job> jobs;
        for (int i = 0; i < 40; ++i)
            jobs.emplace_back(tmaintest::randomBytes(500 + 37 * i, c * 1000 + i));
        for (Job& j : jobs)
            bad += !j.ok();
    });
    EXPECT_EQ(0, bad.load());
}

} // namespace
