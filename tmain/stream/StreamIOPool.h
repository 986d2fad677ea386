#pragma once
#include <tmain/foundation/Singleton.h>
#include <tmain/stream/Stream.h>
#include <vector>

namespace tarso {
namespace stream {

class InputStream;
class OutputStream;
class IOThread;

/// Runs stream reads, writes and opens on a small fixed set of background
/// threads named "IOThread", fed round-robin, and hands back a future for
/// each. A process-wide singleton; configure it before its first use.
class TMAIN_API StreamIOPool : public ::core::IRefCount {
public:
    struct Config {
        unsigned numThreads;
    };

    static constexpr int RD_STREAMABORTED_ERROR = 1;
    static constexpr int RD_TIMEOUT_ERROR = 2;
    static constexpr int RD_UNKNOWN_ERROR = 3;
    static constexpr int OPEN_IO_ERROR = 4;
    static constexpr int OPEN_UNKNOWN_ERROR = 5;

    static unsigned sNumThreads;
    static bool sInitialized;

    /// Before the pool exists: stores the thread count and returns false.
    /// Afterwards: changes nothing and returns true.
    static bool configure(const Config& config);

    /// The pool, created on first use. Out of line, so that every module
    /// shares the library's one instance.
    static StreamIOPool* getSingleton();
    static void deleteSingleton();

    /// The caller keeps stream and buffer alive until the future completes.
    ::core::Future<unsigned> readFromStream(InputStream* stream, void* buffer, unsigned size);
    ::core::Future<unsigned> writeToStream(OutputStream* stream, const void* buffer, unsigned size);
    ::core::Future<void> openStream(Stream* stream, Stream::EOpenMode mode);

    unsigned getThreadCount() const { return (unsigned)mThreads.size(); }

private:
    friend class ::core::Singleton<StreamIOPool>;
    StreamIOPool();
    ~StreamIOPool() override;
    unsigned _selectThread();
    template <class Task> void queue(Task* task);

    ::core::CriticalSection mCS;
    std::vector<::core::SmartPtr<IOThread>> mThreads;
    unsigned mNext;
};

} // namespace stream
} // namespace tarso
