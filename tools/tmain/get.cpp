// tmain get: fetches a file, by default through a CacheFileSystem in the
// user's cache folder, so that a second get is served from the cache and an
// interrupted one continues where it stopped.
#include "Tool.h"
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileOutputStream.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/CacheFile.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/SharedCacheInfo.h>
#include <vector>

using namespace tarso;
using platform::FileOperations;

namespace tmaintool {

namespace {

struct GetOptions {
    std::string url, output, cacheDir, policy = "default";
    bool quiet = false;
};

vfs::CacheFileSystem::CachePolicy policyOf(const std::string& name) {
    using Policy = vfs::CacheFileSystem::CachePolicy;
    if (name == "always")
        return Policy::ALLWAYSEXPIRE;
    if (name == "never")
        return Policy(-1);
    if (name == "none")
        return Policy(Policy::DEFAULT.getExpirationTime(), Policy::FLAG_DONT_CACHE);
    return Policy::DEFAULT;
}

/// Where the bytes go: a file written under a ".part" name and renamed once
/// complete, or standard output.
class Sink {
public:
    explicit Sink(const std::string& path) : mPath(path) {
        if (mPath == "-")
            return;
        FileOperations::ensurePath(mPath.c_str());
        mStream.reset(new stream::FileOutputStream((mPath + ".part").c_str()));
        mStream->open(stream::Stream::OM_WRITE | stream::Stream::OM_TRUNCATE | stream::Stream::OM_BINARY);
    }
    ~Sink() {
        if (mStream) {
            mStream->close();
            FileOperations::remove((mPath + ".part").c_str(), 0);
        }
    }
    void write(const void* data, unsigned size) {
        if (!mStream)
            return writeStdout(data, size);
        if (mStream->write(data, 1, size) != size)
            throw Failure{mPath, "cannot write the file (disk full?)"};
    }
    void commit(long long lastModified) {
        if (!mStream)
            return;
        mStream->flush();
        mStream->close();
        mStream.reset();
        std::string part = mPath + ".part";
        // The rename does not replace: an older copy goes first.
        if (FileOperations::exists(mPath.c_str()) && !FileOperations::isDirectory(mPath.c_str()))
            FileOperations::remove(mPath.c_str(), 0);
        if (!FileOperations::rename(part.c_str(), mPath.c_str()))
            throw Failure{mPath, "cannot rename " + part + " to it"};
        if (lastModified > 0)
            FileOperations::setLastModTime(mPath.c_str(), lastModified);
    }

private:
    std::string mPath;
    std::unique_ptr<stream::FileOutputStream> mStream;
};

int runGet(const GetOptions& o) {
    Target t = parseTarget(o.url);
    std::string output = o.output.empty() ? t.name : o.output;
    if (output.empty())
        throw Failure{o.url, "no file name in the URL: pass -o FILE"};
    vfs::CacheFileSystem::CachePolicy policy = policyOf(o.policy);

    ::core::SmartPtr<vfs::FileSystem> source;
    ::core::SmartPtr<vfs::CacheFileSystem> cache;
    ::core::SmartPtr<vfs::File> file;
    if (t.remote()) {
        // One cache folder per server; paths below it mirror the server's.
        std::string root =
            (o.cacheDir.empty() ? defaultCacheRoot() : o.cacheDir) + "/" + originFolder(t.origin);
        if (!FileOperations::ensurePath((root + "/").c_str()) && !FileOperations::isDirectory(root.c_str()))
            throw Failure{root, "cannot create the cache folder"};
        source = openFileSystem(t.origin);
        cache = new vfs::CacheFileSystem(root.c_str(), source.get(), policy, 1u << 20);
        file = cache->lookup(t.remotePath.c_str());
    } else {
        file = openFile(t, source);
    }

    const unsigned long long size = file->getSize();
    auto* cacheFile = dynamic_cast<vfs::CacheFile*>(file.get());
    vfs::SharedCacheInfo* info = cacheFile ? cacheFile->getCacheInfo() : nullptr;
    // A cached file that is complete comes back as the local copy itself.
    const bool wholeFromCache = cache && !cacheFile && !policy.hasFlag(policy.FLAG_DONT_CACHE);
    const unsigned long long cachedBefore = wholeFromCache ? size : info ? info->getMap().getCachedSize() : 0;
    auto fetchedSoFar = [&](unsigned long long done) -> unsigned long long {
        if (!cache || wholeFromCache)
            return cache ? 0 : done;
        if (!info)
            return done;
        unsigned long long now = info->isCompleted() ? size : info->getMap().getCachedSize();
        return now > cachedBefore ? now - cachedBefore : 0;
    };

    Sink sink(output);
    std::unique_ptr<stream::InputStream> in(file->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    Progress progress(!o.quiet && stderrIsTerminal(), t.name.empty() ? o.url : t.name, size);
    std::vector<char> buffer(1u << 20);
    unsigned long long done = 0;
    while (!interrupted()) {
        unsigned n = in->read(buffer.data(), 1, (unsigned)buffer.size());
        if (n == 0)
            break;
        sink.write(buffer.data(), n);
        done += n;
        unsigned long long fetched = fetchedSoFar(done);
        progress.update(done, done > fetched ? done - fetched : 0, fetched);
    }
    if (interrupted()) {
        // Closing the stream and letting the file go saves the cache map, so
        // the next get asks only for what is still missing.
        in.reset();
        file = nullptr;
        cache = nullptr;
        throw Failure{o.url, "interrupted after " + std::to_string(done) +
                                 " bytes; the cache keeps them, run the same get again to resume"};
    }
    if (in->hasError() || (size && done != size))
        throw Failure{o.url, "transfer ended after " + std::to_string(done) + " of " + std::to_string(size) +
                                 " bytes"};
    progress.finish();
    sink.commit(file->getLastModified());
    return EXIT_OK;
}

} // namespace

void addGet(CLI::App& app, int& status) {
    auto o = std::make_shared<GetOptions>();
    CLI::App* cmd =
        app.add_subcommand("get", "Fetch a file (http, https, file, archive.zip!entry), through the cache");
    cmd->add_option("URL", o->url, "What to fetch")->required();
    cmd->add_option("-o,--output", o->output, "Where to write it ('-': standard output; default: its name)");
    cmd->add_option("--cache", o->cacheDir, "Cache folder (default: $XDG_CACHE_HOME/tmain)");
    cmd->add_option("--policy", o->policy,
                    "When a cached copy is checked against the server: default (after a day), always, never; "
                    "none: bypass the cache")
        ->check(CLI::IsMember({"default", "always", "never", "none"}));
    cmd->add_flag("-q,--quiet", o->quiet, "No progress bar");
    cmd->callback([o, &status] {
        installInterruptHandler();
        status = guarded(o->url, [o] { return runGet(*o); });
        if (status == EXIT_FAIL && interrupted())
            status = EXIT_INTERRUPTED;
    });
}

} // namespace tmaintool
