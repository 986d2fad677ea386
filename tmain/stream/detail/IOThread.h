#pragma once
#include <deque>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Future.h>
#include <tmain/foundation/Thread.h>
#include <tmain/stream/Stream.h>

namespace tarso {
namespace stream {

class InputStream;
class OutputStream;

/// One worker of the stream I/O pool: an auto-reset event that wakes it, a
/// lock over its queue and a first-in first-out queue of tasks.
class IOThread : public ::core::Thread_Impl<IOThread> {
public:
    class Task {
    public:
        virtual ~Task() {}
        virtual void run() = 0;
    };

    /// A read (direction 1) or write (direction 2) of `size` bytes.
    class RWTask : public Task {
    public:
        enum { READ = 1, WRITE = 2 };
        RWTask(int direction, Stream* stream, void* buffer, unsigned size, ::core::Future<unsigned> future)
            : mDirection(direction), mStream(stream), mBuffer(buffer), mSize(size), mFuture(future) {}
        void run() override;

    private:
        int mDirection;
        Stream* mStream;
        void* mBuffer;
        unsigned mSize;
        ::core::Future<unsigned> mFuture;
    };

    class OpenTask : public Task {
    public:
        OpenTask(Stream* stream, Stream::EOpenMode mode, ::core::Future<void> future)
            : mStream(stream), mMode(mode), mFuture(future) {}
        void run() override;

    private:
        Stream* mStream;
        Stream::EOpenMode mMode;
        ::core::Future<void> mFuture;
    };

    IOThread();
    ~IOThread() override;
    void post(Task* task);
    void onRun();

protected:
    void terminate(unsigned timeoutMs) override;

private:
    ::core::Event mWake;
    ::core::CriticalSection mQueueCS;
    std::deque<Task*> mQueue;
};

} // namespace stream
} // namespace tarso
