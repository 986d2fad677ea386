// tmain cache: what a cache folder holds, and its maintenance operations
// (CacheFileSystem's clean-up, clear and invalidate).
#include "Tool.h"
#include <algorithm>
#include <tmain/core/Serializer.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/CacheMap.h>
#include <tmain/vfs/SimpleFileSystem.h>

using namespace tarso;
using platform::FileOperations;

namespace tmaintool {

namespace {

struct CacheOptions {
    std::string dir, pattern;
};

std::string cacheRoot(const CacheOptions& o) {
    std::string root = o.dir.empty() ? defaultCacheRoot() : o.dir;
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    if (!FileOperations::isDirectory(root.c_str()))
        throw Failure{root, "no cache folder there"};
    return root;
}

/// The maintenance operations need a CacheFileSystem, which needs a source:
/// they never look anything up, so the cache folder itself stands in.
::core::SmartPtr<vfs::CacheFileSystem> openCache(const std::string& root) {
    ::core::SmartPtr<vfs::FileSystem> none(new vfs::SimpleFileSystem(root.c_str()));
    return new vfs::CacheFileSystem(root.c_str(), none.get());
}

void listFiles(const std::string& dir, std::vector<std::string>& out) {
    const size_t first = out.size();
    FileOperations::iterateContents(dir.c_str(), "*", &out, [](const char* name, void* user) {
        static_cast<std::vector<std::string>*>(user)->push_back(name);
    });
    size_t n = out.size();
    for (size_t i = first; i < n; ++i) {
        const std::string sub = out[i]; // a copy: the recursion grows the vector
        if (FileOperations::isDirectory(sub.c_str()) &&
            strcmp(FileOperations::getFile(sub.c_str()), ".cdata"))
            listFiles(sub, out);
    }
}

int runStatus(const CacheOptions& o) {
    const std::string root = cacheRoot(o);
    std::vector<std::string> files;
    listFiles(root, files);
    std::sort(files.begin(), files.end());
    std::string text;
    unsigned completeCount = 0, partialCount = 0;
    unsigned long long completeBytes = 0, partialCached = 0, partialSize = 0;
    char line[160];
    for (const std::string& abs : files) {
        if (FileOperations::isDirectory(abs.c_str()) || abs.find("/.cdata/") != std::string::npos ||
            vfs::FileSystem::checkExtension(abs.c_str(), ".tcmap", true))
            continue;
        std::string rel = abs.substr(root.size() + 1);
        unsigned long long size = (unsigned long long)FileOperations::getSize(abs.c_str());
        if (!vfs::FileSystem::checkExtension(abs.c_str(), ".tcache", true)) {
            ++completeCount;
            completeBytes += size;
            snprintf(line, sizeof(line), "complete %12llu ", size);
            text += line + rel + "\n";
            continue;
        }
        ++partialCount;
        partialSize += size;
        rel.resize(rel.size() - strlen(".tcache"));
        vfs::CacheMap map;
        std::string mapFile = vfs::CacheFileSystem::mapPath(abs), note;
        if (!FileOperations::exists(mapFile.c_str())) {
            note = " (no map)";
        } else {
            try {
                stream::FileInputStream in(mapFile.c_str());
                in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
                tarso::core::Serializer serializer(nullptr);
                map.deserialize(&in, &serializer);
                // The cache trusts a map only when it fits its data file.
                if (!map.fits(size)) {
                    map.clear();
                    note = " (map does not fit the data file: ignored)";
                }
            } catch (const ::core::Exception& e) {
                map.clear();
                note = std::string(" (unreadable map: ") + e.getMessage() + ")";
            }
        }
        unsigned long long cached = map.getCachedSize();
        partialCached += cached;
        snprintf(line, sizeof(line), "partial  %12llu %s %llu/%llu bytes (%.1f%%) ranges", size, rel.c_str(),
                 cached, size, size ? cached * 100.0 / size : 0.0);
        text += line;
        for (const vfs::CacheMapEntry& e : map.getEntries())
            text += " " + std::to_string(e.mStart) + "-" + std::to_string(e.getEnd());
        text += note + "\n";
    }
    snprintf(
        line, sizeof(line),
        "total: %u complete (%llu bytes), %u partial (%llu of %llu bytes cached), cache size %llu bytes\n",
        completeCount, completeBytes, partialCount, partialCached, partialSize,
        openCache(root)->getCacheSize());
    text += line;
    writeStdout(text.data(), text.size());
    return EXIT_OK;
}

int runMaintenance(const std::string& what, const CacheOptions& o) {
    const std::string root = cacheRoot(o);
    ::core::SmartPtr<vfs::CacheFileSystem> cache = openCache(root);
    bool abort = false;
    std::string text;
    if (what == "clean")
        text = "removed " + std::to_string(cache->cleanUpCache(abort)) + " bytes of unfinished files\n";
    else if (what == "clear")
        text = "removed " + std::to_string(cache->clearCache(abort)) + " bytes\n";
    else
        text = "invalidated " + std::to_string(cache->invalidate(o.pattern.c_str())) + " paths\n";
    writeStdout(text.data(), text.size());
    return EXIT_OK;
}

} // namespace

void addCache(CLI::App& app, int& status) {
    auto o = std::make_shared<CacheOptions>();
    CLI::App* cmd = app.add_subcommand("cache", "Inspect and maintain a cache folder");
    cmd->require_subcommand(1);
    const char* dirHelp = "The cache folder (default: $XDG_CACHE_HOME/tmain)";
    struct Sub {
        const char *name, *help;
    };
    for (Sub s : {Sub{"status", "Complete and partial files, cached ranges and sizes"},
                  Sub{"clean", "Delete unfinished files that are not in use"},
                  Sub{"clear", "Delete everything cached that is not in use"},
                  Sub{"invalidate", "Drop the cached copies of the paths matching a pattern"}}) {
        CLI::App* sub = cmd->add_subcommand(s.name, s.help);
        std::string name = s.name;
        if (name == "invalidate")
            sub->add_option("PATTERN", o->pattern, "Paths relative to the cache folder, wildcards * and ?")
                ->required();
        sub->add_option("DIR", o->dir, dirHelp);
        sub->callback([o, name, &status] {
            status = guarded(o->dir.empty() ? "cache" : o->dir, [o, name] {
                return name == "status" ? runStatus(*o) : runMaintenance(name, *o);
            });
        });
    }
}

} // namespace tmaintool
