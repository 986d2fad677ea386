#include <tmain/core/Lookup3.h>

#include <cstdint>
#include <cstring>

namespace {

inline uint32_t rot(uint32_t x, int k) {
    return (x << k) | (x >> (32 - k));
}

inline void mix(uint32_t& a, uint32_t& b, uint32_t& c) {
    a -= c;
    a ^= rot(c, 4);
    c += b;
    b -= a;
    b ^= rot(a, 6);
    a += c;
    c -= b;
    c ^= rot(b, 8);
    b += a;
    a -= c;
    a ^= rot(c, 16);
    c += b;
    b -= a;
    b ^= rot(a, 19);
    a += c;
    c -= b;
    c ^= rot(b, 4);
    b += a;
}

inline void finalMix(uint32_t& a, uint32_t& b, uint32_t& c) {
    c ^= b;
    c -= rot(b, 14);
    a ^= c;
    a -= rot(c, 11);
    b ^= a;
    b -= rot(a, 25);
    c ^= b;
    c -= rot(b, 16);
    a ^= c;
    a -= rot(c, 4);
    b ^= a;
    b -= rot(a, 14);
    c ^= b;
    c -= rot(b, 24);
}

// Assembles the word byte by byte so the result is the little-endian value on
// any host and no unaligned load happens; compilers turn this into one load.
inline uint32_t readLe32(const unsigned char* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

// Core of both entry points. Returns false for an empty key, where the
// published algorithm skips the final mixing.
bool hashBytes(const unsigned char* k, uint32_t length, uint32_t& a, uint32_t& b, uint32_t& c) {
    while (length > 12) {
        a += readLe32(k);
        b += readLe32(k + 4);
        c += readLe32(k + 8);
        mix(a, b, c);
        length -= 12;
        k += 12;
    }
    if (length == 0)
        return false;
    // The last 1..12 bytes, zero-padded: the same sums the word-masking
    // original produces, without reading past the key.
    unsigned char tail[12] = {};
    std::memcpy(tail, k, length);
    a += readLe32(tail);
    b += readLe32(tail + 4);
    c += readLe32(tail + 8);
    finalMix(a, b, c);
    return true;
}

} // namespace

unsigned hashlittle(const void* key, unsigned length, unsigned initval) {
    uint32_t a, b, c;
    a = b = c = 0xdeadbeefu + uint32_t(length) + uint32_t(initval);
    hashBytes(static_cast<const unsigned char*>(key), length, a, b, c);
    return c;
}

void hashlittle2(const void* key, unsigned length, unsigned* pc, unsigned* pb) {
    uint32_t a, b, c;
    a = b = c = 0xdeadbeefu + uint32_t(length) + uint32_t(*pc);
    c += uint32_t(*pb);
    hashBytes(static_cast<const unsigned char*>(key), length, a, b, c);
    *pc = c;
    *pb = b;
}
