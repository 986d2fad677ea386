#include "../support/TestSupport.h"
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <tmain/foundation/Base64.h>
#include <tmain/foundation/CSHA1.h>
#include <tmain/foundation/Exception.h>

using tmaintest::randomBytes;
using tmaintest::readFile;
using tmaintest::writeFile;

namespace {

std::string run(const std::string& cmd) {
    std::string out;
    EXPECT_EQ(0, tmaintest::run(cmd, &out)) << cmd;
    return out;
}

std::string sha1Hex(const std::string& data, std::mt19937* chunking = nullptr) {
    CSHA1 sha;
    const unsigned char* p = (const unsigned char*)data.data();
    size_t left = data.size();
    while (left) {
        size_t n = chunking ? std::min<size_t>(left, (*chunking)() % 150) : left;
        sha.Update(p, (unsigned)n);
        p += n;
        left -= n;
    }
    sha.Final();
    std::string hex;
    EXPECT_TRUE(sha.ReportHash(hex));
    return hex;
}

std::vector<size_t> testLengths() {
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 300; ++n)
        lengths.push_back(n);
    for (size_t n : {1000, 4095, 65543, (1 << 20) + 3})
        lengths.push_back(n);
    return lengths;
}

} // namespace

TEST(SHA1Test, PublishedVectorsAndLifecycle) {
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", sha1Hex(""));
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", sha1Hex("abc"));
    EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1",
              sha1Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    CSHA1 sha;
    const std::string a(1000000, 'a');
    unsigned sizes[] = {1, 3, 7, 13, 61, 64, 65, 127, 4097};
    for (size_t pos = 0, i = 0; pos < a.size(); ++i) {
        unsigned n = (unsigned)std::min<size_t>(sizes[i % 9], a.size() - pos);
        sha.Update((const unsigned char*)a.data() + pos, n);
        pos += n;
    }
    unsigned char digest[21];
    digest[20] = 0x5A;
    EXPECT_FALSE(sha.GetHash(digest));
    sha.Final();
    sha.Final(); // a second Final changes nothing
    ASSERT_TRUE(sha.GetHash(digest));
    EXPECT_EQ(0x5A, digest[20]);
    const unsigned char expected[20] = {0x34, 0xaa, 0x97, 0x3c, 0xd4, 0xc4, 0xda, 0xa4, 0xf6, 0x1e,
                                        0xeb, 0x2b, 0xdb, 0xad, 0x27, 0x31, 0x65, 0x34, 0x01, 0x6f};
    EXPECT_EQ(0, memcmp(expected, digest, 20));
    EXPECT_THROW(sha.Update((const unsigned char*)"x", 1), core::IllegalStateException);
    sha.Reset();
    sha.Update(nullptr, 0);
    EXPECT_THROW(sha.Update(nullptr, 1), core::IllegalArgumentException);
    sha.Update((const unsigned char*)"abc", 3);
    sha.Final();
    std::string hex;
    sha.ReportHash(hex);
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", hex);
}

TEST(SHA1Test, MatchesSha1sum) {
    TMAIN_REQUIRE_TOOL("sha1sum");
    tmaintest::TempDir dir;
    std::string cmd = "cd '" + dir.path() + "' && sha1sum";
    for (size_t n : testLengths()) {
        writeFile(dir.file("d" + std::to_string(n)), randomBytes(n, (unsigned)n));
        cmd += " d" + std::to_string(n);
    }
    std::istringstream lines(run(cmd));
    std::string hash, name;
    std::mt19937 rng(1234);
    for (size_t n : testLengths()) {
        ASSERT_TRUE(lines >> hash >> name);
        ASSERT_EQ("d" + std::to_string(n), name);
        EXPECT_EQ(hash, sha1Hex(randomBytes(n, (unsigned)n))) << n;
        EXPECT_EQ(hash, sha1Hex(randomBytes(n, (unsigned)n), &rng)) << n << " in chunks";
    }
}

TEST(SHA1Test, MessageOverFourGigabits) {
    TMAIN_REQUIRE_TOOL("sha1sum");
    // 2^29 + 4099 bytes: the bit count needs both words of the length field.
    const size_t total = (size_t(1) << 29) + 4099;
    std::string expected = run("yes abcdefg | head -c " + std::to_string(total) + " | sha1sum").substr(0, 40);
    std::string block;
    for (int i = 0; i < (1 << 17); ++i)
        block += "abcdefg\n";
    CSHA1 sha;
    for (size_t done = 0; done < total;) {
        unsigned n = (unsigned)std::min(block.size(), total - done);
        sha.Update((const unsigned char*)block.data(), n);
        done += n;
    }
    sha.Final();
    std::string hex;
    sha.ReportHash(hex);
    EXPECT_EQ(expected, hex);
}

namespace {

std::string encode(const std::string& s) {
    std::string out = "junk";
    text::base64_encode((const unsigned char*)s.data(), (unsigned)s.size(), out);
    return out;
}

/// Decodes into a buffer of exactly outSize bytes followed by a guard byte.
int decode(const char* in, unsigned outSize, std::string* result = nullptr) {
    std::vector<char> buf(outSize + 1, (char)0xA5);
    int n = text::base64_decode(in, buf.data(), outSize);
    EXPECT_EQ((char)0xA5, buf[outSize]) << "wrote past outSize for '" << in << "'";
    EXPECT_LE(n, (int)outSize);
    if (result && n >= 0)
        result->assign(buf.data(), (size_t)n);
    return n;
}

} // namespace

TEST(Base64Test, RFC4648VectorsAndHostileInput) {
    const char* encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (unsigned len = 0; len <= 6; ++len) {
        const std::string plain = std::string("foobar", len);
        EXPECT_EQ(encoded[len], encode(plain));
        std::string back;
        EXPECT_EQ((int)len, decode(encoded[len], len, &back));
        EXPECT_EQ(plain, back);
        for (unsigned small = 0; small < len; ++small)
            EXPECT_EQ(-1, decode(encoded[len], small)) << encoded[len] << " into " << small;
    }
    std::string back;
    EXPECT_EQ(6, decode(" Zm9v\r\nYm\tFy \n", 6, &back));
    EXPECT_EQ("foobar", back);
    EXPECT_EQ(1, decode("Zg= =\r\n", 1, &back));
    for (const char* bad : {"Zm9v!", "Zm9", "Zm=v", "Z===", "====", "=", "Zg==Zg==", "Zg==x",
                            "Zm9v====", "Zg=", "Zm9-", "Zm9_", "\xC3\xA9\xC3\xA9"})
        EXPECT_EQ(-1, decode(bad, 64)) << bad;
    EXPECT_EQ(-1, text::base64_decode(nullptr, nullptr, 0));
    EXPECT_EQ(-1, text::base64_decode("Zm9v", nullptr, 3));
    // Random text over the alphabet, padding and whitespace never overruns.
    std::mt19937 rng(99);
    const char pool[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=\n ";
    for (int i = 0; i < 3000; ++i) {
        std::string s(rng() % 20, ' ');
        for (char& c : s)
            c = pool[rng() % (sizeof(pool) - 1)];
        decode(s.c_str(), rng() % 16);
    }
}

TEST(Base64Test, MatchesCoreutilsBase64) {
    TMAIN_REQUIRE_TOOL("base64");
    tmaintest::TempDir dir;
    std::string list;
    for (size_t n : testLengths()) {
        const std::string data = randomBytes(n, (unsigned)n + 7);
        writeFile(dir.file("d" + std::to_string(n)), data);
        writeFile(dir.file("e" + std::to_string(n)), encode(data));
        list += " " + std::to_string(n);
    }
    // One-line and wrapped encodings by the tool, and the tool decoding ours.
    run("cd '" + dir.path() + "' && for n in" + list +
        "; do base64 -w0 d$n > w$n && base64 d$n > l$n && base64 -d e$n > b$n || exit 1; done");
    for (size_t n : testLengths()) {
        const std::string id = std::to_string(n), data = randomBytes(n, (unsigned)n + 7);
        EXPECT_EQ(readFile(dir.file("w" + id)), encode(data)) << n;
        EXPECT_TRUE(readFile(dir.file("b" + id)) == data) << n;
        std::string back;
        EXPECT_EQ((int)n, decode(readFile(dir.file("l" + id)).c_str(), (unsigned)n, &back)) << n;
        EXPECT_TRUE(back == data) << n;
    }
}
