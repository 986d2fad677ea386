// libFuzzer harness for GZIPInputStream over a memory stream (input layout in
// inflate_check.h). Whatever zlib reads as whole gzip members must come out
// byte for byte and without an error; any input must end in data, eof() or
// our own exception (with hasError() set), never a crash, a hang or an
// unbounded allocation.
#include "inflate_check.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::runInflateHarness("fuzz_gzip_stream", data, size, true);
    return 0;
}
