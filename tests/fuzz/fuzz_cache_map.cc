// libFuzzer harness for the cache's ".tcmap" files.
//
// The input is a map file. It is loaded the way the cache loads one (the
// CacheMap's own deserialize straight from the file's stream, with a
// serializer that has no factory, keeping what was read when the read
// fails), then judged by the cache's rule: only a sorted list of separate,
// non-empty ranges inside the file is trusted. A trusted map must answer its
// queries consistently, write back to the same entries and stay sorted and
// separate as ranges are added; any other map must still take queries and
// additions without harm.
//
// Seeds: TMAIN_FUZZ_SEEDS=<dir> ./fuzz_cache_map -runs=0 has a real cache
// file system write maps for a partly read file and copies them into <dir>.
#include "fuzz_support.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <tmain/core/Serializer.h>
#include <tmain/foundation/Exception.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/CacheMap.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <vector>

using tarso::platform::FileOperations;
using tarso::stream::ByteInputStream;
using tarso::stream::ByteOutputStream;
using tarso::stream::Stream;
using tarso::vfs::CacheMap;
using tarso::vfs::CacheMapEntry;

namespace {

const char* const NAME = "fuzz_cache_map";

std::string readFile(const std::string& path) {
    std::string out;
    if (FILE* f = fopen(path.c_str(), "rb")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof(buf), f)) > 0)
            out.append(buf, n);
        fclose(f);
    }
    return out;
}

void writeFile(const std::string& path, const std::string& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f)
        fuzz::fail(NAME, "cannot write a seed");
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
}

// A cache over a local source reads parts of a 100000-byte file; releasing
// the file saves its map, which becomes a seed.
void writeSeeds(const std::string& dir) {
    std::error_code error;
    std::filesystem::path made;
    std::random_device random;
    for (int attempt = 0; made.empty() && attempt < 100; ++attempt) {
        std::filesystem::path candidate =
            std::filesystem::temp_directory_path(error) / ("fuzz_cache_map." + std::to_string(random()));
        if (!error && std::filesystem::create_directory(candidate, error))
            made = candidate;
    }
    if (made.empty())
        fuzz::fail(NAME, "cannot make a temporary directory");
    const std::string root = made.generic_string(), src = root + "/src", cacheRoot = root + "/cache";
    FileOperations::ensurePath((src + "/x").c_str());
    writeFile(src + "/data.bin", std::string(100000, 'x'));
    FileOperations::setLastModTime((src + "/data.bin").c_str(), 1500000000);
    ::core::SmartPtr<tarso::vfs::SimpleFileSystem> source(new tarso::vfs::SimpleFileSystem(src.c_str()));
    const std::vector<std::vector<unsigned>> patterns = {{5000}, {0, 20000, 95000}, {0, 4096}, {99990}};
    int n = 0;
    for (const auto& reads : patterns) {
        ::core::SmartPtr<tarso::vfs::CacheFileSystem> cache(new tarso::vfs::CacheFileSystem(
            cacheRoot.c_str(), source.get(), tarso::vfs::CacheFileSystem::CachePolicy::DEFAULT, 4096, 16));
        {
            ::core::SmartPtr<tarso::vfs::File> file(cache->lookup("data.bin"));
            std::unique_ptr<tarso::stream::InputStream> in(file->getInputStream());
            in->open(Stream::OM_READ | Stream::OM_BINARY);
            char buf[100];
            for (unsigned at : reads) {
                in->seek((int)at, Stream::SM_BEGIN);
                in->read(buf, 1, sizeof(buf));
            }
        }
        const std::string map = readFile(cacheRoot + "/data.bin.tcmap");
        if (map.empty())
            fuzz::fail(NAME, "the cache wrote no map");
        writeFile(dir + "/tcmap-" + std::to_string(++n), map);
        cache = nullptr;
        FileOperations::remove(cacheRoot.c_str(), FileOperations::REMOVE_RECURSIVE);
    }
    FileOperations::remove(root.c_str(), FileOperations::REMOVE_RECURSIVE);
    // The legacy layout (version 1: the Object part is only the type name),
    // unmerged and out of order as old files may be.
    auto le = [](unsigned v) { return std::string((const char*)&v, 4); };
    const std::string type = "tarso::vfs::CacheMap";
    writeFile(dir + "/tcmap-legacy",
              le(1) + le((unsigned)type.size()) + type + le(2) + le(20) + le(4) + le(0) + le(3));
}

std::vector<CacheMapEntry> entriesOf(const CacheMap& map) {
    return std::vector<CacheMapEntry>(map.getEntries().begin(), map.getEntries().end());
}

void checkQueries(const CacheMap& map, unsigned long long fileSize) {
    unsigned long long sum = 0;
    for (const CacheMapEntry& e : map.getEntries()) {
        sum += e.mSize;
        if (map.getEntry(e.mStart, e.mSize) != &e)
            fuzz::fail(NAME, "an entry does not find itself");
        if (e.mSize < 0xFFFFFFFFu && map.getEntry(e.mStart, e.mSize + 1) != nullptr)
            fuzz::fail(NAME, "the byte after an entry is reported present");
        if (e.mStart > 0 && map.getEntry(e.mStart - 1, 1) != nullptr)
            fuzz::fail(NAME, "the byte before an entry is reported present");
    }
    if (sum > fileSize || map.getCachedSize() != sum)
        fuzz::fail(NAME, "getCachedSize() is not the sum of the entries");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    if (const char* dir = getenv("TMAIN_FUZZ_SEEDS"))
        writeSeeds(dir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CacheMap map;
    ByteInputStream in(data, (unsigned)size, false);
    in.open(Stream::OM_READ | Stream::OM_BINARY);
    tarso::core::Serializer serializer(nullptr);
    try {
        map.deserialize(&in, &serializer);
    } catch (const ::core::Exception&) {
        // The cache keeps what was read before the fault.
    }
    if (map.getEntries().size() > size / 8)
        fuzz::fail(NAME, "more entries than the input holds");

    // The file is taken to end where the map's last range does.
    unsigned long long fileSize = 0;
    for (const CacheMapEntry& e : map.getEntries())
        fileSize = std::max(fileSize, (unsigned long long)e.mStart + e.mSize);
    fuzz::Rng rng((uint32_t)size ^ (size ? data[size - 1] << 16 : 0));
    if (fileSize == 0)
        fileSize = 1 + rng.next() % 200000;
    const bool ok = fileSize <= 0xFFFFFFFFull && map.fits(fileSize);
    if (ok) {
        checkQueries(map, fileSize);
        ByteOutputStream out;
        out.open(Stream::OM_WRITE | Stream::OM_BINARY);
        map.serialize(&out, &serializer);
        ByteInputStream back(out.getBytes(), out.getSize(), false);
        back.open(Stream::OM_READ | Stream::OM_BINARY);
        CacheMap again;
        again.deserialize(&back, &serializer);
        if (entriesOf(again) != entriesOf(map))
            fuzz::fail(NAME, "a map written back reads different entries");
    }
    // Ranges the cache would add for this file, small and large (an untrusted
    // map may end past the largest file size there is).
    const unsigned long long span = std::min(fileSize, 0xFFFFFFFFull);
    for (int i = 0; i < 16; ++i) {
        const unsigned start = (unsigned)(rng.next() % span);
        const unsigned room = (unsigned)(span - start);
        const unsigned length = 1 + rng.next() % (i % 2 ? room : std::min(room, 5000u));
        map.addEntry(start, length);
        const CacheMapEntry* e = map.getEntry(start, length);
        map.getCachedSize();
        if (!ok)
            continue;
        if (!e)
            fuzz::fail(NAME, "a range just added is not found");
        if (!map.fits(fileSize))
            fuzz::fail(NAME, "adding a range broke the sorted, separate list");
        checkQueries(map, fileSize);
    }
    return 0;
}
