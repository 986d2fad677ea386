// The checks shared by the gzip and deflate harnesses: a stream over the
// input is read in odd chunk sizes, moved forwards and backwards, and asked
// for its state between reads; what it delivers is compared with zlib's own
// inflate over the same bytes, and a cut copy of good input must be an error.
#pragma once
#include "fuzz_support.h"

#include <functional>
#include <memory>
#include <string>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/DeflateInputStream.h>
#include <tmain/stream/GZIPInputStream.h>
#include <vector>
#include <zlib.h>

namespace fuzz {

/// What zlib itself makes of the input.
struct Reference {
    bool ok = false;                // decoded to the end with every check passed
    std::string out;                // what it inflated, also when it failed
    std::vector<size_t> completeAt; // input lengths that are a whole file
    size_t used = 0;                // input bytes taken by the data (the rest is trailing)
};

/// Inflates with zlib; `members`: gzip files of concatenated members that
/// must fill the whole input, otherwise one stream followed by anything.
inline Reference inflateReference(const uint8_t* data, size_t size, int windowBits, bool members) {
    Reference ref;
    z_stream z = z_stream();
    if (inflateInit2(&z, windowBits) != Z_OK)
        return ref;
    z.next_in = const_cast<Bytef*>(data);
    z.avail_in = (uInt)size;
    unsigned char chunk[16384];
    for (;;) {
        z.next_out = chunk;
        z.avail_out = sizeof(chunk);
        int rc = inflate(&z, Z_NO_FLUSH);
        ref.out.append((const char*)chunk, sizeof(chunk) - z.avail_out);
        if (rc == Z_STREAM_END) {
            ref.used = size - z.avail_in;
            ref.completeAt.push_back(ref.used);
            if (!members || z.avail_in == 0) {
                ref.ok = true;
                break;
            }
            inflateReset(&z);
        } else if (rc != Z_OK) {
            break; // a fault, or no progress possible: the data ends early
        }
    }
    inflateEnd(&z);
    return ref;
}

using tarso::stream::DeflateInputStream;
using tarso::stream::Stream;
typedef std::function<DeflateInputStream*(const uint8_t*, size_t)> StreamMaker;

/// Bytes a stream delivered, by position; a forward seek leaves a hole.
struct Delivered {
    std::string mBytes;
    std::vector<bool> mKnown;

    void put(const char* harness, unsigned pos, const char* b, unsigned n) {
        if (mBytes.size() < pos + (size_t)n) {
            mBytes.resize(pos + (size_t)n);
            mKnown.resize(pos + (size_t)n, false);
        }
        for (unsigned i = 0; i < n; ++i) {
            if (mKnown[pos + i] && mBytes[pos + i] != b[i])
                fail(harness, "the same position read twice gave different bytes");
            mBytes[pos + i] = b[i];
            mKnown[pos + i] = true;
        }
    }
    /// Every known byte equals zlib's where zlib produced one.
    void compare(const char* harness, const std::string& ref) const {
        for (size_t i = 0; i < mBytes.size() && i < ref.size(); ++i)
            if (mKnown[i] && mBytes[i] != ref[i])
                fail(harness, "inflated bytes differ from zlib's");
    }
};

/// Opens a stream over the bytes and reads it to its end, counting every
/// way a fault can show; returns false when it threw.
inline bool drain(const char* harness, DeflateInputStream& in, Delivered& seen, unsigned& pos, size_t limit) {
    static char buf[4096];
    try {
        if (!in.isOpen())
            in.open(Stream::OM_READ);
        while (unsigned got = in.read(buf, 1, sizeof(buf))) {
            if (got > sizeof(buf))
                fail(harness, "read returned more than asked");
            seen.put(harness, pos, buf, got);
            pos += got;
            if (pos > limit)
                fail(harness, "more bytes than zlib inflates");
        }
    } catch (const ::core::Exception&) {
        if (!in.hasError())
            fail(harness, "an exception without hasError()");
        return false;
    }
    if (!in.eof())
        fail(harness, "a read returned 0 before eof()");
    if (in.available() != 0)
        fail(harness, "available() after the end");
    return true;
}

/// `twoWay`: whatever zlib rejects must be an error here too (not so for
/// gzip, whose header CRC and length field this reader does not check).
inline void exercise(const char* harness, const StreamMaker& make, const uint8_t* data, size_t size,
                     uint32_t seed, const Reference& ref, bool twoWay) {
    const size_t limit = ref.ok ? ref.out.size() : (size_t)64 << 20;
    Rng rng(seed);
    Delivered seen;
    unsigned pos = 0;
    bool threw = false;
    std::unique_ptr<DeflateInputStream> in(make(data, size));
    try {
        in->open(Stream::OM_READ);
        static const unsigned sizes[8] = {1, 2, 3, 7, 64, 511, 4096, 70000};
        static std::vector<char> buf(70000);
        for (int op = 0; op < 48; ++op) {
            const uint32_t r = rng.next();
            const unsigned arg = r >> 8;
            switch (r % 8) {
            case 6: { // forward, by inflating and discarding
                const unsigned step = arg % 3000, target = pos + step;
                in->seek((int)step, Stream::SM_CURRENT);
                const unsigned at = in->tell();
                if (at < pos || at > target || (at < target && !in->eof()))
                    fail(harness, "a forward seek stopped short before the end");
                pos = at;
                break;
            }
            case 7: { // backwards restarts from the beginning
                const unsigned target = arg % (pos + 1);
                in->seek((int)target, Stream::SM_BEGIN);
                if (in->tell() != target)
                    fail(harness, "tell() after a backward seek");
                pos = target;
                break;
            }
            default: {
                const unsigned want = sizes[arg % 8];
                const bool wasEof = in->eof();
                const unsigned got = in->read(buf.data(), 1, want);
                if (got > want)
                    fail(harness, "read returned more than asked");
                if (wasEof && got > 0)
                    fail(harness, "bytes after eof()");
                seen.put(harness, pos, buf.data(), got);
                pos += got;
                if (in->tell() != pos)
                    fail(harness, "tell() is not the number of bytes delivered");
                if (got == 0 && !in->eof())
                    fail(harness, "a read returned 0 before eof()");
                if (pos > limit)
                    fail(harness, "more bytes than zlib inflates");
            }
            }
            if (in->eof() && in->available() != 0)
                fail(harness, "available() after the end");
        }
        threw = !drain(harness, *in, seen, pos, limit);
    } catch (const ::core::Exception&) {
        if (!in->hasError())
            fail(harness, "an exception without hasError()");
        threw = true;
    }
    seen.compare(harness, ref.out);
    if (ref.ok && (threw || in->hasError() || pos != ref.out.size()))
        fail(harness, "good data read short or with an error");
    if (twoWay && !ref.ok && !threw && !in->hasError())
        fail(harness, "bad data read without an error");

    // Good data cut anywhere but where a whole file ends is an error that
    // still delivers a prefix.
    if (!ref.ok || ref.used == 0)
        return;
    const size_t cut = seed % ref.used;
    for (size_t whole : ref.completeAt)
        if (cut == whole)
            return;
    std::unique_ptr<DeflateInputStream> part(make(data, cut));
    Delivered partSeen;
    unsigned partPos = 0;
    const bool partThrew = !drain(harness, *part, partSeen, partPos, limit);
    partSeen.compare(harness, ref.out);
    if (!partThrew && !part->hasError())
        fail(harness, "cut data read without an error");
}

/// The body of both stream harnesses. Input: one byte choosing the input and
/// output buffer sizes (bits 0-1 and 2-3) and, for deflate, raw data instead
/// of the zlib format (bit 4); one byte seeding the reads and seeks; then the
/// compressed data.
inline void runInflateHarness(const char* harness, const uint8_t* data, size_t size, bool gzip) {
    if (size < 2)
        return;
    const unsigned inSize = bufferSize(data[0]), outSize = bufferSize(data[0] >> 2);
    const bool raw = !gzip && (data[0] & 0x10);
    const uint32_t seed = data[1] | (uint32_t)size << 8;
    data += 2;
    size -= 2;
    const Reference ref = inflateReference(data, size, gzip ? 16 + 15 : raw ? -15 : 15, gzip);
    auto make = [&](const uint8_t* d, size_t n) -> DeflateInputStream* {
        auto* source = new tarso::stream::ByteInputStream(d, (unsigned)n, false);
        if (gzip)
            return new tarso::stream::GZIPInputStream(source, true, inSize, outSize);
        return new DeflateInputStream(source, true, inSize, outSize, raw);
    };
    exercise(harness, make, data, size, seed, ref, !gzip);
}

} // namespace fuzz
