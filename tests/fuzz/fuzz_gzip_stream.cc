// libFuzzer harness for GZIPInputStream over a memory stream.
//
// Input: one byte choosing the input and output buffer sizes (two bits each),
// one byte seeding the sequence of reads and seeks, then the gzip file.
// Whatever zlib reads as whole gzip members must come out byte for byte and
// without an error; any input must end in data, eof() or our own exception
// (with hasError() set), never a crash, a hang or an unbounded allocation.
#include "inflate_check.h"

#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/GZIPInputStream.h>

namespace {
const char* const NAME = "fuzz_gzip_stream";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    const unsigned inSize = fuzz::bufferSize(data[0]), outSize = fuzz::bufferSize(data[0] >> 2);
    const uint32_t seed = data[1] | (uint32_t)size << 8;
    data += 2;
    size -= 2;
    const fuzz::Reference ref = fuzz::inflateReference(data, size, 16 + 15, true);
    fuzz::exercise(
        NAME,
        [&](const uint8_t* d, size_t n) {
            return new tarso::stream::GZIPInputStream(
                new tarso::stream::ByteInputStream(d, (unsigned)n, false), true, inSize, outSize);
        },
        data, size, seed, ref, false);
    return 0;
}
