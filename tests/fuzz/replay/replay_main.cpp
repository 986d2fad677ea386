// Corpus replay: runs a fuzz harness (built without libFuzzer) over every
// file of its corpus directory, so that the test suite repeats every input
// the fuzzer ever kept, regression cases included. A broken invariant aborts,
// a sanitizer reports; an empty or missing corpus fails as well.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s <corpus directory>\n", argv[0]);
        return 2;
    }
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> files;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], ec))
        if (entry.is_regular_file())
            files.push_back(entry.path());
    if (ec || files.empty()) {
        fprintf(stderr, "%s: no corpus files in '%s'\n", argv[0], argv[1]);
        return 1;
    }
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
        std::ifstream f(path, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        if (!f.good() && !f.eof()) {
            fprintf(stderr, "%s: cannot read '%s'\n", argv[0], path.string().c_str());
            return 1;
        }
        // A copy of exactly the file's size, so that ASan sees any over-read.
        std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size() ? bytes.size() : 1]);
        std::copy(bytes.begin(), bytes.end(), copy.get());
        LLVMFuzzerTestOneInput(copy.get(), bytes.size());
    }
    printf("%zu inputs replayed from %s\n", files.size(), argv[1]);
    return 0;
}
