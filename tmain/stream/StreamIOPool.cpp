#include <tmain/stream/StreamIOPool.h>

#include <tmain/foundation/Logger.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>
#include <tmain/stream/detail/IOThread.h>

namespace tarso {
namespace stream {

unsigned StreamIOPool::sNumThreads = 2;
bool StreamIOPool::sInitialized = false;

// ------------------------------------------------------------------ tasks

void IOThread::RWTask::run() {
    unsigned total = 0;
    try {
        unsigned char* p = static_cast<unsigned char*>(mBuffer);
        for (;;) {
            unsigned remainder = mSize - total;
            unsigned n;
            if (mDirection == READ)
                n = static_cast<InputStream*>(mStream)->read(p + total, 1, remainder);
            else
                n = static_cast<OutputStream*>(mStream)->write(p + total, 1, remainder);
            total += n;
            // A write gets one call; a read goes on until it has everything
            // or the stream ends.
            if (n == remainder || mDirection == WRITE)
                break;
            if (static_cast<InputStream*>(mStream)->eof())
                break;
        }
    } catch (const StreamAbortedException& e) {
        mFuture.fail(StreamIOPool::RD_STREAMABORTED_ERROR, e.getMessage());
        return;
    } catch (const TimeoutException& e) {
        mFuture.fail(StreamIOPool::RD_TIMEOUT_ERROR, e.getMessage());
        return;
    } catch (const ::core::Exception& e) {
        mFuture.fail(StreamIOPool::RD_UNKNOWN_ERROR, e.getMessage());
        return;
    } catch (...) {
        mFuture.fail(0, "StreamIOPool: unknown error reading stream");
        return;
    }
    mFuture.complete(total);
}

void IOThread::OpenTask::run() {
    try {
        mStream->open(mMode);
    } catch (const IOException& e) {
        mFuture.fail(StreamIOPool::OPEN_IO_ERROR, e.getMessage());
        return;
    } catch (const ::core::Exception& e) {
        mFuture.fail(StreamIOPool::OPEN_UNKNOWN_ERROR, e.getMessage());
        return;
    } catch (...) {
        mFuture.fail(0, "unknown error opening stream");
        return;
    }
    mFuture.complete();
}

// ------------------------------------------------------------------ IOThread

IOThread::IOThread() : ::core::Thread_Impl<IOThread>("IOThread", 512), mWake(false, false) {}

IOThread::~IOThread() {
    for (Task* t : mQueue)
        delete t;
}

void IOThread::post(Task* task) {
    {
        ::core::Lock lock(mQueueCS);
        mQueue.push_back(task);
    }
    mWake.set();
}

void IOThread::terminate(unsigned timeoutMs) {
    ::core::Thread::terminate(0);
    mWake.set();
    if (timeoutMs)
        join(timeoutMs);
}

void IOThread::onRun() {
    while (!terminateRequest()) {
        mWake.wait();
        std::deque<Task*> batch;
        {
            ::core::Lock lock(mQueueCS);
            batch.swap(mQueue);
        }
        for (Task* t : batch) {
            t->run();
            delete t;
        }
    }
}

// ------------------------------------------------------------------ pool

StreamIOPool* StreamIOPool::getSingleton() {
    return ::core::Singleton<StreamIOPool>::getSingleton();
}

void StreamIOPool::deleteSingleton() {
    ::core::Singleton<StreamIOPool>::deleteSingleton();
}

bool StreamIOPool::configure(const Config& config) {
    if (::core::Singleton<StreamIOPool>::exists())
        return true;
    sNumThreads = config.numThreads;
    return false;
}

StreamIOPool::StreamIOPool() : mNext(0) {
    unsigned n = sNumThreads ? sNumThreads : 1;
    for (unsigned i = 0; i < n; ++i) {
        ::core::SmartPtr<IOThread> t(new IOThread());
        t->start();
        mThreads.push_back(t);
    }
    sInitialized = true;
}

StreamIOPool::~StreamIOPool() {
    for (auto& t : mThreads)
        t->finish();
    for (auto& t : mThreads)
        t->join();
    mThreads.clear();
    sInitialized = false;
}

unsigned StreamIOPool::_selectThread() {
    ::core::Lock lock(mCS);
    unsigned i = mNext;
    mNext = (mNext + 1) % (unsigned)mThreads.size();
    return i;
}

::core::Future<unsigned> StreamIOPool::readFromStream(InputStream* stream, void* buffer, unsigned size) {
    ::core::Future<unsigned> f;
    mThreads[_selectThread()]->post(new IOThread::RWTask(IOThread::RWTask::READ, stream, buffer, size, f));
    return f;
}

::core::Future<unsigned> StreamIOPool::writeToStream(OutputStream* stream, const void* buffer,
                                                     unsigned size) {
    ::core::Future<unsigned> f;
    mThreads[_selectThread()]->post(
        new IOThread::RWTask(IOThread::RWTask::WRITE, stream, const_cast<void*>(buffer), size, f));
    return f;
}

::core::Future<void> StreamIOPool::openStream(Stream* stream, Stream::EOpenMode mode) {
    ::core::Future<void> f;
    mThreads[_selectThread()]->post(new IOThread::OpenTask(stream, mode, f));
    return f;
}

} // namespace stream
} // namespace tarso
