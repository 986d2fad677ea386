// Parses and dumps a generated document of about 20 MB through JSObject and
// through Jansson directly (json_loadb, json_dumps with the same flags) in
// the same run. Each path runs REPETITIONS times, the two taking turns to
// go first; the median counts. Prints MB/s and the ratios ours / Jansson.
// JSObject checks the depth of a tree before dumping it once containers have
// been linked by hand in the process; the last line measures that case.
//
// The library links Jansson privately, so the plain calls are looked up in
// the process at run time: they are the very functions JSObject calls.
#include "BenchTiming.h"

#include <cstring>
#include <dlfcn.h>
#include <jansson.h>
#include <tmain/json/JSObject.h>
#include <tmain/stream/ByteInputStream.h>

namespace {
const int REPETITIONS = 11;

template <class F> F lookup(const char* name) {
    void* p = dlsym(RTLD_DEFAULT, name);
    if (!p) {
        fprintf(stderr, "Jansson's %s not found in the process\n", name);
        exit(1);
    }
    return reinterpret_cast<F>(p);
}

// Records of mixed kinds, like settings or scene descriptions: nested
// objects, arrays of numbers, strings with escapes and non-ASCII text.
std::string makeDocument(size_t bytes) {
    std::string s = "{\"items\":[";
    unsigned seed = 12345;
    for (int i = 0; s.size() < bytes; ++i) {
        seed = seed * 1103515245u + 12345u;
        char buf[512];
        snprintf(buf, sizeof buf,
                 "%s{\"id\":%d,\"name\":\"item \\\"%u\\\" \xC3\xA9t\xC3\xA9\",\"visible\":%s,\"weight\":%.6f,"
                 "\"position\":[%.3f,%.3f,%.3f],\"tags\":[\"a\",\"bb\",\"ccc\"],\"parent\":null,"
                 "\"meta\":{\"created\":%u,\"path\":\"dir/sub/file_%d.dat\"}}",
                 i ? "," : "", i, seed, seed & 1 ? "true" : "false", (seed % 100000) / 7.0, i * 0.5,
                 -i * 0.25, seed % 1000 / 3.0, seed, i);
        s += buf;
    }
    return s + "]}";
}
} // namespace

int main() {
    auto loadb = lookup<json_t* (*)(const char*, size_t, size_t, json_error_t*)>("json_loadb");
    auto dumps = lookup<char* (*)(const json_t*, size_t)>("json_dumps");
    auto destroy = lookup<void (*)(json_t*)>("json_delete");

    const std::string doc = makeDocument(20 << 20);
    std::vector<double> ourParse, theirParse, ourDump, theirDump;
    size_t ourSize = 0, theirSize = 0;
    for (int r = 0; r < REPETITIONS; ++r) {
        tarso::json::JSObject* ours = nullptr;
        json_t* theirs = nullptr;
        auto parseOurs = [&] {
            ourParse.push_back(timed([&] {
                tarso::stream::ByteInputStream in(doc.data(), (unsigned)doc.size(), false);
                ours = tarso::json::JSObject::parse(&in);
            }));
        };
        auto parseTheirs = [&] {
            theirParse.push_back(timed([&] {
                json_error_t error;
                theirs = loadb(doc.data(), doc.size(), 0, &error);
            }));
        };
        // Alternate who goes first: the second one runs with the first's tree in memory.
        if (r % 2) {
            parseTheirs();
            parseOurs();
        } else {
            parseOurs();
            parseTheirs();
        }
        if (!theirs) {
            fprintf(stderr, "Jansson refused the document\n");
            return 1;
        }
        std::string out;
        char* text = nullptr;
        auto dumpOurs = [&] { ourDump.push_back(timed([&] { ours->dump(out); })); };
        auto dumpTheirs = [&] {
            theirDump.push_back(timed([&] { text = dumps(theirs, JSON_COMPACT | JSON_ENCODE_ANY); }));
        };
        if (r % 2) {
            dumpTheirs();
            dumpOurs();
        } else {
            dumpOurs();
            dumpTheirs();
        }
        ourSize = out.size();
        theirSize = strlen(text);
        if (out != text) {
            fprintf(stderr, "the two dumps differ\n");
            return 1;
        }
        free(text);
        destroy(theirs); // the only reference: json_decref would do the same
        delete ours;
    }
    // Link one container under another: from now on dump() walks the tree first.
    ::core::SmartPtr<tarso::json::JSObject> linked =
        new tarso::json::JSObject(tarso::json::JSObject::T_ARRAY);
    linked->append(new tarso::json::JSObject(tarso::json::JSObject::T_ARRAY));
    std::vector<double> checkedDump;
    {
        tarso::stream::ByteInputStream in(doc.data(), (unsigned)doc.size(), false);
        ::core::SmartPtr<tarso::json::JSObject> ours = tarso::json::JSObject::parse(&in);
        for (int r = 0; r < REPETITIONS; ++r) {
            std::string out;
            checkedDump.push_back(timed([&] { ours->dump(out); }));
        }
    }
    double mb = doc.size() / 1e6;
    printf("document: %.1f MB in, %zu / %zu bytes out\n", mb, ourSize, theirSize);
    printf("parse: JSObject %.1f MB/s, Jansson %.1f MB/s, ratio %.3f\n", mb / median(ourParse),
           mb / median(theirParse), median(ourParse) / median(theirParse));
    printf("dump:  JSObject %.1f MB/s, Jansson %.1f MB/s, ratio %.3f\n", mb / median(ourDump),
           mb / median(theirDump), median(ourDump) / median(theirDump));
    printf("dump with the depth check: JSObject %.1f MB/s, ratio %.3f\n", mb / median(checkedDump),
           median(checkedDump) / median(theirDump));
    return 0;
}
