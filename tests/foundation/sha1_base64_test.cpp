#include "../support/TestSupport.h"
#include <algorithm>
#include <numeric>
#include <random>
#include <thread>
#include <tmain/foundation/Base64.h>
#include <tmain/foundation/CSHA1.h>
#include <tmain/foundation/Exception.h>

using namespace tmaintest;

namespace {

/// Hashes data in one piece, or with a seed in random pieces of 0..149 bytes.
std::string sha1Hex(const std::string& data, unsigned chunkSeed = 0) {
    CSHA1 sha;
    std::mt19937 rng(chunkSeed);
    for (size_t pos = 0, n; pos < data.size(); pos += n) {
        n = chunkSeed ? std::min<size_t>(data.size() - pos, rng() % 150) : data.size() - pos;
        sha.Update((const unsigned char*)data.data() + pos, (unsigned)n);
    }
    sha.Final();
    std::string hex;
    EXPECT_TRUE(sha.ReportHash(hex));
    return hex;
}

// Every tail and padding case of the first few blocks, and one input of many blocks.
std::vector<size_t> testLengths() {
    std::vector<size_t> lengths(302, (1 << 20) + 3);
    std::iota(lengths.begin(), lengths.end() - 1, 0);
    return lengths;
}

std::string encode(const std::string& s) {
    std::string out = "junk";
    text::base64_encode((const unsigned char*)s.data(), (unsigned)s.size(), out);
    return out;
}

/// Decodes into a buffer of exactly outSize bytes followed by a guard byte;
/// "-1" for a refusal.
std::string decode(const char* in, unsigned outSize) {
    std::vector<char> buf(outSize + 1, (char)0xA5);
    int n = text::base64_decode(in, buf.data(), outSize);
    EXPECT_EQ((char)0xA5, buf[outSize]) << "wrote past outSize for '" << in << "'";
    EXPECT_TRUE(n >= -1 && n <= (int)outSize) << n;
    return n == -1 ? "-1" : std::string(buf.data(), (size_t)std::max(n, 0));
}

} // namespace

TEST(SHA1Test, PublishedVectorsAndLifecycle) {
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", sha1Hex(""));
    EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1",
              sha1Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("34aa973cd4c4daa4f61eeb2bdbad27316534016f", sha1Hex(std::string(1000000, 'a'), 5));
    CSHA1 sha;
    std::vector<unsigned char> digest(21, 0x5A);
    std::string hex = "kept";
    sha.Update((const unsigned char*)"abc", 3);
    EXPECT_FALSE(sha.GetHash(digest.data()) || sha.ReportHash(hex));
    EXPECT_EQ("kept", hex);
    sha.Final();
    sha.Final(); // a second Final changes nothing
    ASSERT_TRUE(sha.GetHash(digest.data()));
    EXPECT_EQ((std::vector<unsigned char>{0xa9, 0x99, 0x3e, 0x36, 0x47, 0x06, 0x81, 0x6a, 0xba, 0x3e, 0x25,
                                          0x71, 0x78, 0x50, 0xc2, 0x6c, 0x9c, 0xd0, 0xd8, 0x9d, 0x5A}),
              digest); // 20 bytes copied, no more
    EXPECT_THROW(sha.Update((const unsigned char*)"x", 1), core::IllegalStateException);
    sha.Reset();
    sha.Update(nullptr, 0);
    EXPECT_THROW(sha.Update(nullptr, 1), core::IllegalArgumentException);
    sha.Update((const unsigned char*)"abc", 3);
    sha.Final();
    EXPECT_TRUE(sha.ReportHash(hex) && hex == "a9993e364706816aba3e25717850c26c9cd0d89d") << hex;
}

TEST(SHA1Test, MatchesSha1sum) {
    TMAIN_REQUIRE_TOOL("sha1sum");
    // 2^29 + 4099 bytes: the bit count needs both words of the length field.
    // The tool hashes these zeros on the other core meanwhile.
    const size_t total = (size_t(1) << 29) + 4099;
    std::string big;
    std::thread peer([&] { big = outputOf("head -c " + std::to_string(total) + " /dev/zero | sha1sum"); });
    // The tool checks our digest of each piece, hashed whole and in pieces.
    TempDir dir;
    std::string sums;
    for (size_t n : testLengths()) {
        const std::string data = randomBytes(n, (unsigned)n), hex = sha1Hex(data);
        writeFile(dir.file("d" + std::to_string(n)), data);
        EXPECT_EQ(hex, sha1Hex(data, (unsigned)n + 1)) << n;
        sums += hex + "  d" + std::to_string(n) + "\n";
    }
    writeFile(dir.file("sums"), sums);
    EXPECT_EQ("", outputOf("cd '" + dir.path() + "' && sha1sum --quiet -c sums"));
    std::string hash;
    const std::string block(1 << 20, '\0');
    CSHA1 sha;
    for (size_t done = 0; done < total; done += block.size())
        sha.Update((const unsigned char*)block.data(), (unsigned)std::min(block.size(), total - done));
    sha.Final();
    sha.ReportHash(hash);
    peer.join();
    EXPECT_EQ(big.substr(0, 40), hash);
}

TEST(Base64Test, RFC4648VectorsAndHostileInput) {
    const char* encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (unsigned len = 0; len <= 6; ++len) {
        const std::string plain = std::string("foobar", len);
        EXPECT_EQ(encoded[len], encode(plain));
        EXPECT_EQ(plain, decode(encoded[len], len));
        for (unsigned small = 0; small < len; ++small)
            EXPECT_EQ("-1", decode(encoded[len], small)) << encoded[len] << " into " << small;
    }
    EXPECT_EQ("foobar", decode(" Zm9v\r\nYm\tFy \n", 6));
    EXPECT_EQ("f", decode("Zg= =\r\n", 1));
    for (const char* bad : {"Zm9v!", "Zm9", "Zm=v", "Z===", "====", "=", "Zg==Zg==", "Zg==x",
                            "Zm9v====", "Zg=", "Zm9-", "Zm9_", "\xC3\xA9\xC3\xA9"})
        EXPECT_EQ("-1", decode(bad, 64)) << bad;
    EXPECT_TRUE(text::base64_decode(nullptr, nullptr, 0) == -1 &&
                text::base64_decode("Zm9v", nullptr, 3) == -1);
    // Random text over the alphabet, padding and whitespace never overruns.
    std::mt19937 rng(99);
    const char pool[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=\n ";
    for (int i = 0; i < 3000; ++i) {
        std::string s(rng() % 20, ' ');
        std::generate(s.begin(), s.end(), [&] { return pool[rng() % (sizeof(pool) - 1)]; });
        decode(s.c_str(), rng() % 16);
    }
}

TEST(Base64Test, MatchesCoreutilsBase64) {
    TMAIN_REQUIRE_TOOL("base64");
    TempDir dir;
    // One run of the tool each way for all lengths. It encodes the pieces
    // zero-filled to whole groups, which reads as ours with every '=' as 'A'.
    std::string plain, filled, ours;
    for (size_t n : testLengths()) {
        const std::string data = randomBytes(n, (unsigned)n + 7), enc = encode(data);
        EXPECT_TRUE(decode(enc.c_str(), (unsigned)n) == data) << n;
        plain += data;
        filled += data + std::string((3 - n % 3) % 3, '\0');
        ours += enc;
    }
    writeFile(dir.file("filled"), filled);
    writeFile(dir.file("ours"), ours);
    outputOf("cd '" + dir.path() + "' && base64 -w0 filled > w && base64 filled > l && base64 -d ours > b");
    std::replace(ours.begin(), ours.end(), '=', 'A');
    EXPECT_TRUE(readFile(dir.file("w")) == ours);
    EXPECT_TRUE(readFile(dir.file("b")) == plain);
    EXPECT_TRUE(decode(readFile(dir.file("l")).c_str(), (unsigned)filled.size()) == filled);
}
