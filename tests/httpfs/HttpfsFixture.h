#pragma once
// An nginx serving a temporary tree under /root, and helpers to read through
// the HTTP file system.
#include "../support/HttpPeers.h"
#include <functional>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/HTTPFileSystem.h>
#include <utime.h>
#include <vector>

namespace tmaintest {

class HttpfsFixture : public ::testing::Test {
public:
    /// `path` of `on`, opened for binary reading.
    static std::unique_ptr<tarso::stream::InputStream> open(tarso::vfs::FileSystem* on, const char* path) {
        core::SmartPtr<tarso::vfs::File> f(on->lookup(path));
        std::unique_ptr<tarso::stream::InputStream> in(f->getInputStream());
        in->open(tarso::stream::Stream::OM_READ | tarso::stream::Stream::OM_BINARY);
        return in;
    }
    static std::string readN(tarso::stream::InputStream* in, unsigned n) {
        std::string out(n, '\0');
        out.resize(in->read(&out[0], 1, n));
        return out;
    }
    static std::string readAll(tarso::stream::InputStream* in, unsigned chunk = 65536) {
        std::string out, buf(chunk, '\0');
        for (unsigned n; (n = in->read(&buf[0], 1, chunk)) > 0;)
            out.append(buf, 0, n);
        return out;
    }
    /// The status of the HTTPException `f` throws, -1 without one.
    static int statusOf(const std::function<void()>& f) {
        try {
            f();
        } catch (const tarso::vfs::HTTPException& e) {
            return e.getStatusCode();
        }
        return -1;
    }

protected:
    void SetUp() override {
        TMAIN_REQUIRE_TOOL("nginx");
        run("mkdir -p '" + docs.path() + "/root/z'");
        nginx.reset(new Nginx(docs.path(), "    location /root/z/ { add_header Content-Encoding deflate; }\n"
                                           "    location = /root/busy { return 503; }\n"
                                           "    location = /root/moved { return 302 /root/a.bin; }\n"));
        ASSERT_TRUE(nginx->running());
        fs = new tarso::vfs::HTTPFileSystem(nginx->url("/root").c_str(), 5000, 5000);
    }
    /// A file under the served root with a fixed modification time.
    std::string put(const std::string& path, size_t size, unsigned seed, long mtime = 1500000000) {
        std::string data = randomBytes(size, seed);
        putData(path, data, mtime);
        return data;
    }
    void putData(const std::string& path, const std::string& data, long mtime = 1500000000) {
        std::string abs = docs.path() + "/root/" + path;
        writeFile(abs, data);
        struct utimbuf t = {mtime, mtime};
        utime(abs.c_str(), &t);
    }
    std::unique_ptr<tarso::stream::InputStream> openStream(const char* path) { return open(fs.get(), path); }
    /// Access log lines whose URI is `uri`.
    std::vector<std::string> logFor(const std::string& uri) const {
        std::vector<std::string> out;
        std::string log = nginx->accessLog();
        for (size_t pos = 0, end; (end = log.find('\n', pos)) != std::string::npos; pos = end + 1) {
            std::string line = log.substr(pos, end - pos);
            size_t sp = line.find(' ');
            if (sp != std::string::npos && line.compare(sp + 1, uri.size() + 1, uri + " ") == 0)
                out.push_back(line);
        }
        return out;
    }

    TempDir docs;
    std::unique_ptr<Nginx> nginx;
    core::SmartPtr<tarso::vfs::HTTPFileSystem> fs;
};

/// The fixture's nginx behind a cache file system in a directory of its own.
class HttpCache : public HttpfsFixture {
protected:
    void SetUp() override {
        HttpfsFixture::SetUp();
        if (!IsSkipped() && !HasFailure())
            cache = new tarso::vfs::CacheFileSystem(cacheDir.path().c_str(), fs.get());
    }
    std::string readThrough(tarso::vfs::FileSystem* c, const char* path, unsigned chunk = 65536) {
        return readAll(open(c, path).get(), chunk);
    }
    std::string readRange(const char* path, unsigned off, unsigned n) {
        std::unique_ptr<tarso::stream::InputStream> in = open(cache.get(), path);
        in->seek((int)off, tarso::stream::Stream::SM_BEGIN);
        return readN(in.get(), n);
    }
    /// Which of the complete file, its data file and its map are in the cache directory.
    std::string onDisk(const std::string& name) const {
        std::string out;
        struct stat st;
        for (const char* suffix : {"", ".tcache", ".tcmap"})
            if (stat((cacheDir.path() + "/" + name + suffix).c_str(), &st) == 0)
                out += name + suffix + " ";
        return out;
    }

    TempDir cacheDir;
    core::SmartPtr<tarso::vfs::CacheFileSystem> cache;
};

} // namespace tmaintest
