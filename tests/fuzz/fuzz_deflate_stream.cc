// libFuzzer harness for DeflateInputStream over a memory stream, zlib format
// or raw deflate as the input's first byte says (layout in inflate_check.h).
// The stream must agree with zlib's own inflate both ways: what zlib reads to
// its end comes out byte for byte without an error, what zlib rejects
// (corrupt or cut short) sets hasError().
#include "inflate_check.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::runInflateHarness("fuzz_deflate_stream", data, size, false);
    return 0;
}
