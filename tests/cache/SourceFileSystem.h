#pragma once
// A local file system that behaves like a failing remote: it counts every
// byte its streams deliver (per offset, to prove nothing is fetched twice),
// can be made unreachable and can fail the next read.
#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <string>
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
    std::atomic<bool> unreachable{false};
    std::atomic<bool> failNextRead{false};

    using tarso::vfs::SimpleFileSystem::lookup;
    tarso::vfs::File* lookup(const char* path, tarso::vfs::LookupData* data) override;

    void count(const std::string& path, unsigned offset, unsigned n) {
        std::lock_guard<std::mutex> g(mMutex);
        std::vector<unsigned char>& v = mPerByte[path];
        v.resize(std::max<size_t>(v.size(), offset + n));
        for (unsigned i = 0; i < n; ++i)
            ++v[offset + i];
        fetched += n;
    }
    /// Highest number of times any byte of the path was fetched.
    unsigned maxFetches(const std::string& path) {
        std::lock_guard<std::mutex> g(mMutex);
        const std::vector<unsigned char>& v = mPerByte[path];
        return v.empty() ? 0 : *std::max_element(v.begin(), v.end());
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
    unsigned read(void* buffer, unsigned size, unsigned count) override {
        if (mFS->failNextRead.exchange(false))
            throw tarso::stream::IOException("source failed at offset %u", tell());
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
