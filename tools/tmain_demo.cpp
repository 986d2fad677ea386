// tmain demo: serves a directory of generated asset files with a local nginx,
// mirrors it through a CacheFileSystem over an HTTPFileSystem, reads some
// files partly and some wholly, and prints what the cache holds and what the
// server sent (from its access log).
//
//   tmain_demo [work-directory] [--keep]
#include "LocalNginx.h"
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tmain/tmain.h>
#include <unistd.h>
#include <vector>

using namespace tarso;
using platform::FileOperations;

namespace {

struct Asset {
    const char* path;
    unsigned size;
    double readFraction; // 1.0: read wholly
};

std::string content(const Asset& a) {
    std::string s(a.size, '\0');
    unsigned x = 2166136261u;
    for (const char* p = a.path; *p; ++p)
        x = (x ^ (unsigned char)*p) * 16777619u;
    for (unsigned i = 0; i < a.size; ++i) {
        x = x * 1664525u + 1013904223u;
        s[i] = (char)(x >> 24);
    }
    return s;
}

void writeFile(const std::string& path, const std::string& data) {
    FileOperations::ensurePath(path.c_str());
    FILE* f = fopen(path.c_str(), "wb");
    if (!f || fwrite(data.data(), 1, data.size(), f) != data.size()) {
        fprintf(stderr, "cannot write %s\n", path.c_str());
        exit(1);
    }
    fclose(f);
}

void listCache(const std::string& root, const std::string& dir, unsigned& partial, unsigned& complete) {
    struct Ctx {
        std::vector<std::string> names;
    } ctx;
    FileOperations::iterateContents(dir.c_str(), "*", &ctx,
                                    [](const char* n, void* u) { static_cast<Ctx*>(u)->names.push_back(n); });
    for (const std::string& abs : ctx.names) {
        std::string rel = abs.substr(root.size() + 1);
        if (FileOperations::isDirectory(abs.c_str())) {
            if (strcmp(FileOperations::getFile(abs.c_str()), ".cdata") != 0)
                listCache(root, abs, partial, complete);
            continue;
        }
        if (vfs::FileSystem::checkExtension(rel.c_str(), ".tcmap", true))
            continue;
        if (vfs::FileSystem::checkExtension(rel.c_str(), ".tcache", true)) {
            ++partial;
            std::string map = vfs::CacheFileSystem::mapPath(abs);
            printf("  partial   %-28s %9lld bytes, cached ranges:", rel.c_str(),
                   (long long)FileOperations::getSize(abs.c_str()));
            if (FileOperations::exists(map.c_str())) {
                stream::FileInputStream in(map.c_str());
                in.open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
                tarso::core::Serializer s(nullptr);
                vfs::CacheMap m;
                m.deserialize(&in, &s);
                for (const vfs::CacheMapEntry& e : m.getEntries())
                    printf(" [%u-%u]", e.mStart, e.getEnd());
                printf(" (%u bytes)", m.getCachedSize());
            }
            printf("\n");
        } else {
            ++complete;
            printf("  complete  %-28s %9lld bytes\n", rel.c_str(),
                   (long long)FileOperations::getSize(abs.c_str()));
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    std::string work;
    bool keep = false;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--keep"))
            keep = true;
        else
            work = argv[i];
    }
    if (work.empty()) {
        char tmpl[] = "/tmp/tmain-demo-XXXXXX";
        if (!mkdtemp(tmpl)) {
            perror("mkdtemp");
            return 1;
        }
        work = tmpl;
    }
    const std::string sourceRoot = work + "/assets", cacheRoot = work + "/cache";
    const Asset assets[] = {
        {"textures/stone.dds", 1u << 20, 1.0},   {"textures/grass.dds", 3u << 20, 0.25},
        {"models/tower.mesh", 700000, 1.0},      {"models/bridge.mesh", 2500000, 0.1},
        {"sounds/wind.ogg", 400000, 0.5},        {"scripts/boot.lua", 3000, 1.0},
        {"maps/island.terrain", 5u << 20, 0.02},
    };
    unsigned long long total = 0;
    for (const Asset& a : assets) {
        writeFile(sourceRoot + "/" + a.path, content(a));
        FileOperations::setLastModTime((sourceRoot + "/" + a.path).c_str(), 1700000000);
        total += a.size;
    }
    printf("tmain demo: %u asset files (%llu bytes) in %s\n", (unsigned)(sizeof(assets) / sizeof(assets[0])),
           total, sourceRoot.c_str());

    LocalNginx nginx(sourceRoot);
    printf("served by nginx at %s\n", nginx.url("/").c_str());
    ::core::SmartPtr<vfs::FileSystem> source(new vfs::HTTPFileSystem(nginx.url("/").c_str(), 4000, 4000));
    ::core::SmartPtr<vfs::CacheFileSystem> cache(new vfs::CacheFileSystem(
        cacheRoot.c_str(), source.get(), vfs::CacheFileSystem::CachePolicy::DEFAULT, 65536, 4));

    bool allGood = true;
    for (int pass = 1; pass <= 2; ++pass) {
        unsigned long long before = nginx.bytesSent();
        unsigned long long delivered = 0;
        for (const Asset& a : assets) {
            ::core::SmartPtr<vfs::File> f(cache->lookup(a.path));
            std::unique_ptr<stream::InputStream> in(f->getInputStream());
            in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
            // Partial reads take a slice from the middle, as a streaming reader would.
            unsigned want = (unsigned)(a.size * a.readFraction);
            unsigned offset = a.readFraction < 1.0 ? (a.size - want) / 2 : 0;
            in->seek((int)offset, stream::Stream::SM_BEGIN);
            std::string got(want, '\0');
            unsigned n = 0;
            while (n < want) {
                unsigned k = in->read(&got[n], 1, want - n);
                if (!k)
                    break;
                n += k;
            }
            delivered += n;
            if (n != want || got != content(a).substr(offset, want)) {
                printf("  MISMATCH in %s\n", a.path);
                allGood = false;
            }
        }
        printf("\npass %d: %llu bytes read by the application, %llu bytes sent by the server\n", pass,
               delivered, nginx.bytesSent() - before);
    }

    printf("\ncache at %s:\n", cacheRoot.c_str());
    unsigned partial = 0, complete = 0;
    listCache(cacheRoot, cacheRoot, partial, complete);
    const unsigned long long sent = nginx.bytesSent();
    printf("\n%u complete, %u partial; cache size %llu bytes; %llu bytes sent by the server in all "
           "(%.1f%% of the assets)\n",
           complete, partial, cache->getCacheSize(), sent, 100.0 * sent / total);
    printf(
        "(a partial read cut short still counts what the server had already pushed into the connection)\n");
    printf("every byte handed out matched the source: %s\n", allGood ? "yes" : "NO");

    cache = nullptr;
    source = nullptr;
    if (!keep)
        FileOperations::remove(work.c_str(), FileOperations::REMOVE_RECURSIVE);
    else
        printf("kept %s\n", work.c_str());
    return allGood ? 0 : 1;
}
