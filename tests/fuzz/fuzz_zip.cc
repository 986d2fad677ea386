// libFuzzer harness for ZIPFileSystem and ZIPInputStream: the input is
// written as an archive file, opened, listed from the top and every listed
// file read to its end (in read sizes and with a seek picked from the
// input's first byte). Any input must end in data or the library's own
// exceptions, never a crash, a hang or an unbounded allocation; listed paths
// never leave the archive, every listed path resolves, and no entry yields
// more than its size. Seeds: small archives by zip -0/-9/-D/-fz, piped zip
// and python3's zipfile (stored, deflated, streamed), plus lying ones from
// tests/zip/mkzip.py.
#include "fuzz_support.h"
#include <cstring>
#include <memory>
#include <string>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/InputStream.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileList.h>
#include <tmain/vfs/ZIPFileSystem.h>
#include <unistd.h>
#include <vector>

using namespace tarso;

namespace {

std::string archivePath() {
    const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(dir) + "/fuzz_zip_" + std::to_string(getpid()) + ".zip";
}

void readEntry(vfs::File* f, unsigned chunk, bool seek) {
    std::unique_ptr<stream::InputStream> in(f->getInputStream());
    in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
    if (seek && f->getSize() > 2) {
        in->seek((int)(f->getSize() / 2), stream::Stream::SM_BEGIN);
        in->seek(1, stream::Stream::SM_BEGIN);
    }
    std::vector<char> buffer(chunk);
    unsigned long long total = in->tell();
    while (unsigned n = in->read(buffer.data(), 1, chunk)) {
        total += n;
        if (total > f->getSize())
            fuzz::fail("fuzz_zip", "an entry yielded more than its size");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = archivePath();
    FILE* out = fopen(path.c_str(), "wb");
    if (!out)
        return 0;
    fwrite(data, 1, size, out);
    fclose(out);
    unsigned options = (unsigned)size; // the last byte usually belongs to the end record
    unsigned chunk = (options & 3) == 0 ? 1 : (options & 3) == 1 ? 97 : 65536;
    try {
        vfs::ZIPFileSystem zfs(path.c_str());
        std::vector<std::string> dirs = {"/"};
        unsigned listed = 0;
        while (!dirs.empty()) {
            std::unique_ptr<vfs::FileList> list(zfs.list(dirs.back().c_str()));
            dirs.pop_back();
            for (vfs::File* f : *list) {
                std::string p = f->getPath();
                if (p.empty() || p[0] != '/' || ("/" + p + "/").find("/../") != std::string::npos)
                    fuzz::fail("fuzz_zip", "a listed path leaves the archive");
                if (!zfs.exists(p.c_str()))
                    fuzz::fail("fuzz_zip", "a listed path does not resolve");
                if (++listed > size + 1)
                    fuzz::fail("fuzz_zip", "more files listed than the archive can hold");
                if (f->isContainer()) {
                    dirs.push_back(p);
                    continue;
                }
                try {
                    readEntry(f, chunk, (options & 4) != 0);
                } catch (const ::core::Exception&) {
                    // the entry's own fault: go on with the next one
                }
            }
        }
    } catch (const ::core::Exception&) {
    }
    return 0;
}
