#pragma once
#include <cstdint>
#include <string>
#include <tmain/Export.h>

/// SHA-1 message digest (FIPS 180-1). Feed data with any number of Update
/// calls, then Final(), then read the 20-byte digest. Reset() starts over.
/// An instance is not shared between threads.
class TMAIN_API CSHA1 {
public:
    static constexpr unsigned HASH_SIZE = 20;

    CSHA1() { Reset(); }

    void Reset();
    /// Adds length bytes. Throws core::IllegalStateException after Final()
    /// (call Reset() first) and core::IllegalArgumentException for null data
    /// with a non-zero length.
    void Update(const unsigned char* data, unsigned length);
    /// Pads the message and computes the digest; further calls do nothing.
    void Final();
    /// Copies the 20-byte digest to out20; false (nothing copied) before Final().
    bool GetHash(unsigned char* out20) const;
    /// The digest as 40 lower-case hex digits; false (hexOut untouched) before Final().
    bool ReportHash(std::string& hexOut) const;

private:
    void transform(const unsigned char* block);

    uint32_t mState[5];
    uint64_t mByteCount;
    unsigned char mBuffer[64];
    unsigned mBuffered;
    bool mFinal;
    unsigned char mDigest[HASH_SIZE];
};
