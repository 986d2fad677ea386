#pragma once
// A local file system that behaves like a slow, failing remote: it counts
// every byte its streams deliver (per offset, to prove nothing is fetched
// twice), can be made unreachable, can fail streams after a number of bytes,
// and can hold reads at a gate.
#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <tmain/foundation/Event.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/SimpleFile.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <vector>

namespace tmaintest {

class SourceFileSystem : public tarso::vfs::SimpleFileSystem {
public:
    explicit SourceFileSystem(const std::string& root) : tarso::vfs::SimpleFileSystem(root.c_str()) {}

    std::atomic<unsigned long long> fetched{0};
    std::atomic<int> lookups{0};
    std::atomic<int> opens{0};
    std::atomic<bool> unreachable{false};
    std::atomic<long long> failAfter{-1}; ///< bytes still allowed before streams throw
    core::Event* gate = nullptr;          ///< when set, every read waits for it

    using tarso::vfs::SimpleFileSystem::lookup;
    tarso::vfs::File* lookup(const char* path, tarso::vfs::LookupData* data) override;

    void count(const std::string& path, unsigned offset, unsigned n) {
        std::lock_guard<std::mutex> g(mMutex);
        std::vector<unsigned char>& v = mPerByte[path];
        if (v.size() < offset + n)
            v.resize(offset + n);
        for (unsigned i = 0; i < n; ++i)
            ++v[offset + i];
        fetched += n;
    }
    /// Highest number of times any byte of the path was fetched.
    unsigned maxFetches(const std::string& path) {
        std::lock_guard<std::mutex> g(mMutex);
        unsigned m = 0;
        for (unsigned char c : mPerByte[path])
            m = c > m ? c : m;
        return m;
    }
    unsigned long long fetchedOf(const std::string& path) {
        std::lock_guard<std::mutex> g(mMutex);
        unsigned long long t = 0;
        for (unsigned char c : mPerByte[path])
            t += c;
        return t;
    }

private:
    std::mutex mMutex;
    std::map<std::string, std::vector<unsigned char>> mPerByte;
};

class SourceStream : public tarso::stream::FileInputStream {
public:
    SourceStream(SourceFileSystem* fs, const std::string& path, const char* abs)
        : tarso::stream::FileInputStream(abs, 4096), mFS(fs), mPath(path) {}
    using tarso::stream::InputStream::read;
    void open(EOpenMode mode) override {
        ++mFS->opens;
        tarso::stream::FileInputStream::open(mode);
    }
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        if (mFS->gate)
            mFS->gate->wait();
        unsigned want = size * count;
        long long allowed = mFS->failAfter.load();
        if (allowed >= 0 && (long long)want > allowed) {
            mFS->failAfter = -1; // fail once
            throw tarso::stream::IOException("source failed at offset %u", tell());
        }
        if (allowed >= 0)
            mFS->failAfter -= want;
        unsigned offset = tell();
        unsigned n = tarso::stream::FileInputStream::read(buffer, size, count);
        mFS->count(mPath, offset, n);
        return n;
    }

private:
    SourceFileSystem* mFS;
    std::string mPath;
};

class SourceFile : public tarso::vfs::SimpleFile {
public:
    SourceFile(const char* path, SourceFileSystem* fs) : tarso::vfs::SimpleFile(path, fs), mFS(fs) {}
    tarso::stream::InputStream* getInputStream() override {
        return new SourceStream(mFS, getPath(), getAbsolutePath());
    }

private:
    SourceFileSystem* mFS;
};

inline tarso::vfs::File* SourceFileSystem::lookup(const char* path, tarso::vfs::LookupData* data) {
    ++lookups;
    if (unreachable)
        throw tarso::stream::IOException("source unreachable");
    core::SmartPtr<tarso::vfs::File> probe(
        tarso::vfs::SimpleFileSystem::lookup(path, data)); // throws when missing
    return new SourceFile(path, this);
}

} // namespace tmaintest
