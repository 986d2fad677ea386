// libFuzzer harness for DeflateInputStream over a memory stream.
//
// Input: one byte choosing the format (bit 0: raw deflate, else zlib) and the
// buffer sizes (bits 1-4), one byte seeding the sequence of reads and seeks,
// then the compressed data. The stream must agree with zlib's own inflate
// both ways: what zlib reads to its end comes out byte for byte without an
// error, what zlib rejects (corrupt or cut short) sets hasError().
#include "inflate_check.h"

#include <tmain/stream/ByteInputStream.h>

namespace {
const char* const NAME = "fuzz_deflate_stream";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    const bool raw = data[0] & 1;
    const unsigned inSize = fuzz::bufferSize(data[0] >> 1), outSize = fuzz::bufferSize(data[0] >> 3);
    const uint32_t seed = data[1] | (uint32_t)size << 8;
    data += 2;
    size -= 2;
    const fuzz::Reference ref = fuzz::inflateReference(data, size, raw ? -15 : 15, false);
    fuzz::exercise(
        NAME,
        [&](const uint8_t* d, size_t n) {
            return new tarso::stream::DeflateInputStream(
                new tarso::stream::ByteInputStream(d, (unsigned)n, false), true, inSize, outSize, raw);
        },
        data, size, seed, ref, true);
    return 0;
}
