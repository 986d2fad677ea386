#pragma once
// A local file system that behaves like a failing remote: it counts every
// byte its streams deliver (per offset, to prove nothing is fetched twice),
// can be made unreachable, can fail reads, deliver short reads and hide file
// sizes; and the fixture of the cache suites built on it.
#include "../support/TestSupport.h"
#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheFile.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/SharedCacheInfo.h>
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
    /// When positive, every failEvery-th read of any stream throws.
    std::atomic<unsigned> failEvery{0};
    std::atomic<unsigned> reads{0};
    /// When non-zero, no read delivers more than this many bytes.
    std::atomic<unsigned> maxChunk{0};
    /// Files report size 0 (unknown), as some servers do.
    std::atomic<bool> unknownSize{false};

    using tarso::vfs::SimpleFileSystem::lookup;
    tarso::vfs::File* lookup(const char* path, tarso::vfs::LookupData* data) override;

    void count(const std::string& path, unsigned offset, unsigned n) {
        std::lock_guard<std::mutex> g(mMutex);
        fetched += n;
        if ((unsigned long long)offset + n > (64u << 20))
            return; // per-byte counts only for files of test size, not for sparse giants
        std::vector<unsigned char>& v = mPerByte[path];
        v.resize(std::max<size_t>(v.size(), offset + n));
        for (unsigned i = 0; i < n; ++i)
            ++v[offset + i];
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
        unsigned every = mFS->failEvery, nth = ++mFS->reads;
        if (every && nth % every == 0)
            throw tarso::stream::IOException("source failed at offset %u", tell());
        unsigned offset = tell(), chunk = mFS->maxChunk, wanted = size * count;
        unsigned n =
            tarso::stream::FileInputStream::read(buffer, 1, chunk && chunk < wanted ? chunk : wanted);
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
    unsigned getSize() override { return mFS->unknownSize ? 0 : tarso::vfs::SimpleFile::getSize(); }

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

// Reads [offset, offset+n) through a fresh stream of a freshly looked-up file.
inline std::string readRange(tarso::vfs::FileSystem* fs, const char* path, unsigned offset, unsigned n) {
    core::SmartPtr<tarso::vfs::File> f(fs->lookup(path));
    std::unique_ptr<tarso::stream::InputStream> in(f->getInputStream());
    in->open(tarso::stream::Stream::OM_READ | tarso::stream::Stream::OM_BINARY);
    in->seekTo(offset);
    std::string out(n, '\0');
    unsigned got = 0, k;
    while (got < n && (k = in->read(&out[got], 1, n - got)) != 0)
        got += k;
    out.resize(got);
    return out;
}

/// A source under <tmp>/src and a cache over it under <tmp>/cache.
struct CacheFixture : ::testing::Test {
    TempDir dir;
    std::string srcRoot = dir.file("src"), cacheRoot = dir.file("cache");
    core::SmartPtr<SourceFileSystem> source;
    core::SmartPtr<tarso::vfs::CacheFileSystem> cache;
    core::SmartPtr<tarso::vfs::File> file; // the file behind openStream()'s stream
    std::map<std::string, std::string> content;

    void SetUp() override {
        tarso::platform::FileOperations::ensurePath((srcRoot + "/x").c_str());
        source = new SourceFileSystem(srcRoot);
        makeCache();
    }
    tarso::vfs::CacheFileSystem* makeCache(unsigned buffer = 4096, unsigned slots = 16) {
        cache = nullptr;
        cache =
            new tarso::vfs::CacheFileSystem(cacheRoot.c_str(), source.get(),
                                            tarso::vfs::CacheFileSystem::CachePolicy::DEFAULT, buffer, slots);
        return cache.get();
    }
    void addSource(const std::string& path, size_t size, unsigned seed, __int64 mtime = 1500000000) {
        content[path] = randomBytes(size, seed);
        std::string abs = srcRoot + "/" + path;
        tarso::platform::FileOperations::ensurePath(abs.c_str());
        writeFile(abs, content[path]);
        tarso::platform::FileOperations::setLastModTime(abs.c_str(), mtime);
    }
    std::unique_ptr<tarso::stream::InputStream> openStream(const char* path) {
        file = cache->lookup(path);
        std::unique_ptr<tarso::stream::InputStream> in(file->getInputStream());
        in->open(tarso::stream::Stream::OM_READ);
        return in;
    }
    const tarso::vfs::CacheMap& cachedMap() {
        return static_cast<tarso::vfs::CacheFile*>(file.get())->getCacheInfo()->getMap();
    }
    std::string local(const std::string& rel) { return cacheRoot + "/" + rel; }
    bool onDisk(const std::string& rel) {
        return tarso::platform::FileOperations::exists(local(rel).c_str());
    }
    /// Those of the paths that exist, each followed by a space.
    std::string present(std::initializer_list<const char*> rels) {
        std::string out;
        for (const char* rel : rels)
            out += onDisk(rel) ? rel + std::string(" ") : "";
        return out;
    }
    std::string readAll(const std::string& path) {
        return readRange(cache.get(), path.c_str(), 0, (unsigned)content[path].size());
    }
};

} // namespace tmaintest
