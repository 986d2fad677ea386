// tmain demo: the tool's main job end to end. Serves a directory of generated
// assets (some plain files, one .zip) with a local nginx, runs `tmain get`
// for several of them twice through one cache folder, lists the inside of the
// fetched zip with `tmain ls`, shows `tmain cache status`, and prints the
// bytes the server sent on each pass: the second pass is served from the
// cache. The server stops when the demo ends, also on failure.
//
//   tmain_demo [work-directory] [--keep]     (the `tmain` program is looked
//                                             for next to this one)
#include "LocalNginx.h"
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tmain/platform/FileOperations.h>
#include <unistd.h>
#include <vector>

using tarso::platform::FileOperations;

namespace {

struct Asset {
    const char* path;
    unsigned size;
};

const Asset ASSETS[] = {
    {"textures/stone.dds", 1u << 20}, {"textures/grass.dds", 3u << 20}, {"models/tower.mesh", 700000},
    {"sounds/wind.ogg", 400000},      {"scripts/boot.lua", 3000},
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

bool writeFile(const std::string& path, const std::string& data) {
    FileOperations::ensurePath(path.c_str());
    FILE* f = fopen(path.c_str(), "wb");
    bool ok = f && fwrite(data.data(), 1, data.size(), f) == data.size();
    if (f)
        ok = fclose(f) == 0 && ok;
    return ok;
}

std::string quote(const std::string& s) {
    return "'" + s + "'";
}

/// Shows and runs a command; false when it failed.
bool step(const std::string& shown, const std::string& command) {
    printf("$ %s\n", shown.c_str());
    fflush(stdout);
    int status = system(command.c_str());
    if (status != 0) {
        printf("  FAILED (status %d)\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        return false;
    }
    return true;
}

std::string toolPath(const char* argv0) {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    std::string dir = n > 0 ? std::string(self, (size_t)n) : std::string(argv0);
    dir = dir.substr(0, dir.rfind('/') + 1);
    return dir + "tmain";
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
    const std::string tool = toolPath(argv[0]);
    if (access(tool.c_str(), X_OK) != 0) {
        fprintf(stderr, "tmain_demo: the tmain program is missing: %s\n", tool.c_str());
        return 1;
    }
    if (work.empty()) {
        char tmpl[] = "/tmp/tmain-demo-XXXXXX";
        if (!mkdtemp(tmpl)) {
            perror("mkdtemp");
            return 1;
        }
        work = tmpl;
    }
    const std::string www = work + "/www", cache = work + "/cache", out = work + "/downloads";
    unsigned long long total = 0;
    for (const Asset& a : ASSETS) {
        if (!writeFile(www + "/" + a.path, content(a))) {
            fprintf(stderr, "tmain_demo: cannot write %s/%s\n", www.c_str(), a.path);
            return 1;
        }
        total += a.size;
    }
    // The zip holds the textures and scripts, made by the zip tool itself.
    if (system(("cd " + quote(www) + " && zip -q -r pack.zip textures scripts").c_str()) != 0) {
        fprintf(stderr, "tmain_demo: zip failed (is it installed?)\n");
        return 1;
    }
    FileOperations::ensurePath((out + "/").c_str());
    printf("tmain demo: %zu assets (%llu bytes) and pack.zip in %s\n", sizeof(ASSETS) / sizeof(ASSETS[0]),
           total, www.c_str());

    bool ok = true;
    {
        LocalNginx nginx(www);
        printf("served by nginx at %s\n\n", nginx.url("/").c_str());
        const char* fetched[] = {"textures/stone.dds", "models/tower.mesh", "sounds/wind.ogg", "pack.zip"};
        unsigned long long before = nginx.bytesSent();
        for (int pass = 1; pass <= 2 && ok; ++pass) {
            printf("-- pass %d\n", pass);
            for (const char* path : fetched) {
                std::string name = FileOperations::getFile(path);
                std::string args = "get " + nginx.url("/") + path + " -o " + quote(out + "/" + name) +
                                   " --cache " + quote(cache);
                ok = ok && step("tmain " + args, quote(tool) + " " + args);
            }
            unsigned long long sent = nginx.bytesSent();
            printf("pass %d: the server sent %llu bytes\n\n", pass, sent - before);
            before = sent;
        }
        ok = ok &&
             step("tmain ls -l -r downloads/pack.zip", quote(tool) + " ls -l -r " + quote(out + "/pack.zip"));
        ok = ok && step("tmain cat downloads/pack.zip!scripts/boot.lua | cmp - www/scripts/boot.lua",
                        quote(tool) + " cat " + quote(out + "/pack.zip!scripts/boot.lua") + " | cmp - " +
                            quote(www + "/scripts/boot.lua"));
        ok = ok && step("tmain cache status", quote(tool) + " cache status " + quote(cache));
        for (const char* path : fetched)
            ok = ok && system(("cmp -s " + quote(www + "/" + path) + " " +
                               quote(out + "/" + FileOperations::getFile(path)))
                                  .c_str()) == 0;
        printf("\nevery fetched file matches the server's: %s\n", ok ? "yes" : "NO");
    } // the server stops here, whatever happened above
    if (!keep)
        FileOperations::remove(work.c_str(), FileOperations::REMOVE_RECURSIVE);
    else
        printf("kept %s\n", work.c_str());
    return ok ? 0 : 1;
}
