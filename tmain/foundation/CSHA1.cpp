#include <cstring>
#include <tmain/foundation/CSHA1.h>
#include <tmain/foundation/Exception.h>

namespace {

inline uint32_t rol(uint32_t x, unsigned n) {
    return (x << n) | (x >> (32 - n));
}

inline uint32_t loadBE(const unsigned char* p) {
    return ((uint32_t)p[0] << 24) | ((uint32_t)p[1] << 16) | ((uint32_t)p[2] << 8) | (uint32_t)p[3];
}

inline void storeBE(uint32_t v, unsigned char* p) {
    p[0] = (unsigned char)(v >> 24);
    p[1] = (unsigned char)(v >> 16);
    p[2] = (unsigned char)(v >> 8);
    p[3] = (unsigned char)v;
}

} // namespace

void CSHA1::Reset() {
    mState[0] = 0x67452301u;
    mState[1] = 0xEFCDAB89u;
    mState[2] = 0x98BADCFEu;
    mState[3] = 0x10325476u;
    mState[4] = 0xC3D2E1F0u;
    mByteCount = 0;
    mBuffered = 0;
    mFinal = false;
    std::memset(mBuffer, 0, sizeof(mBuffer));
    std::memset(mDigest, 0, sizeof(mDigest));
}

// Fully unrolled: each round adds into e and rotates b, and the next round
// takes the five variables shifted by one name, so no values are moved. The
// message schedule lives in a rolling 16-word window.
#define SHA1_W(t) (w[(t)&15] = rol(w[((t) + 13) & 15] ^ w[((t) + 8) & 15] ^ w[((t) + 2) & 15] ^ w[(t)&15], 1))
#define SHA1_CH(x, y, z) (((x) & (y)) | (~(x) & (z)))
#define SHA1_PARITY(x, y, z) ((x) ^ (y) ^ (z))
#define SHA1_MAJ(x, y, z) (((x) & (y)) | ((x) & (z)) | ((y) & (z)))
#define SHA1_R(f, k, wt, a, b, c, d, e)                                                                      \
    do {                                                                                                     \
        e += rol(a, 5) + f(b, c, d) + (k) + (wt);                                                            \
        b = rol(b, 30);                                                                                      \
    } while (0)
#define SHA1_R5(f, k, W, t)                                                                                  \
    SHA1_R(f, k, W(t), a, b, c, d, e);                                                                       \
    SHA1_R(f, k, W(t + 1), e, a, b, c, d);                                                                   \
    SHA1_R(f, k, W(t + 2), d, e, a, b, c);                                                                   \
    SHA1_R(f, k, W(t + 3), c, d, e, a, b);                                                                   \
    SHA1_R(f, k, W(t + 4), b, c, d, e, a)
#define SHA1_W0(t) w[t]

void CSHA1::transform(const unsigned char* block) {
    uint32_t w[16];
    for (int t = 0; t < 16; ++t)
        w[t] = loadBE(block + 4 * t);
    uint32_t a = mState[0], b = mState[1], c = mState[2], d = mState[3], e = mState[4];
    const uint32_t K0 = 0x5A827999u, K1 = 0x6ED9EBA1u, K2 = 0x8F1BBCDCu, K3 = 0xCA62C1D6u;
    SHA1_R5(SHA1_CH, K0, SHA1_W0, 0);
    SHA1_R5(SHA1_CH, K0, SHA1_W0, 5);
    SHA1_R5(SHA1_CH, K0, SHA1_W0, 10);
    SHA1_R(SHA1_CH, K0, w[15], a, b, c, d, e);
    SHA1_R(SHA1_CH, K0, SHA1_W(16), e, a, b, c, d);
    SHA1_R(SHA1_CH, K0, SHA1_W(17), d, e, a, b, c);
    SHA1_R(SHA1_CH, K0, SHA1_W(18), c, d, e, a, b);
    SHA1_R(SHA1_CH, K0, SHA1_W(19), b, c, d, e, a);
    SHA1_R5(SHA1_PARITY, K1, SHA1_W, 20);
    SHA1_R5(SHA1_PARITY, K1, SHA1_W, 25);
    SHA1_R5(SHA1_PARITY, K1, SHA1_W, 30);
    SHA1_R5(SHA1_PARITY, K1, SHA1_W, 35);
    SHA1_R5(SHA1_MAJ, K2, SHA1_W, 40);
    SHA1_R5(SHA1_MAJ, K2, SHA1_W, 45);
    SHA1_R5(SHA1_MAJ, K2, SHA1_W, 50);
    SHA1_R5(SHA1_MAJ, K2, SHA1_W, 55);
    SHA1_R5(SHA1_PARITY, K3, SHA1_W, 60);
    SHA1_R5(SHA1_PARITY, K3, SHA1_W, 65);
    SHA1_R5(SHA1_PARITY, K3, SHA1_W, 70);
    SHA1_R5(SHA1_PARITY, K3, SHA1_W, 75);
    mState[0] += a;
    mState[1] += b;
    mState[2] += c;
    mState[3] += d;
    mState[4] += e;
}

#undef SHA1_W
#undef SHA1_W0
#undef SHA1_CH
#undef SHA1_PARITY
#undef SHA1_MAJ
#undef SHA1_R
#undef SHA1_R5

void CSHA1::Update(const unsigned char* data, unsigned length) {
    if (mFinal)
        throw core::IllegalStateException("CSHA1::Update: the hash is final, call Reset() first");
    if (length == 0)
        return;
    if (!data)
        throw core::IllegalArgumentException("CSHA1::Update: null data with length %u", length);
    mByteCount += length;
    if (mBuffered) {
        unsigned take = 64 - mBuffered;
        if (take > length)
            take = length;
        std::memcpy(mBuffer + mBuffered, data, take);
        mBuffered += take;
        data += take;
        length -= take;
        if (mBuffered < 64)
            return;
        transform(mBuffer);
        mBuffered = 0;
    }
    for (; length >= 64; data += 64, length -= 64)
        transform(data);
    if (length) {
        std::memcpy(mBuffer, data, length);
        mBuffered = length;
    }
}

void CSHA1::Final() {
    if (mFinal)
        return;
    // Message length in bits, modulo 2^64, big-endian after the padding.
    const uint64_t bits = mByteCount << 3;
    mBuffer[mBuffered++] = 0x80;
    if (mBuffered > 56) {
        std::memset(mBuffer + mBuffered, 0, 64 - mBuffered);
        transform(mBuffer);
        mBuffered = 0;
    }
    std::memset(mBuffer + mBuffered, 0, 56 - mBuffered);
    storeBE((uint32_t)(bits >> 32), mBuffer + 56);
    storeBE((uint32_t)bits, mBuffer + 60);
    transform(mBuffer);
    for (int i = 0; i < 5; ++i)
        storeBE(mState[i], mDigest + 4 * i);
    // Do not leave message bytes behind in the object.
    std::memset(mBuffer, 0, sizeof(mBuffer));
    mBuffered = 0;
    mFinal = true;
}

bool CSHA1::GetHash(unsigned char* out20) const {
    if (!mFinal || !out20)
        return false;
    std::memcpy(out20, mDigest, HASH_SIZE);
    return true;
}

bool CSHA1::ReportHash(std::string& hexOut) const {
    static const char HEX[] = "0123456789abcdef";
    if (!mFinal)
        return false;
    hexOut.resize(2 * HASH_SIZE);
    for (unsigned i = 0; i < HASH_SIZE; ++i) {
        hexOut[2 * i] = HEX[mDigest[i] >> 4];
        hexOut[2 * i + 1] = HEX[mDigest[i] & 0x0F];
    }
    return true;
}
