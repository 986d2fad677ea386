#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <tmain/core/Lookup3.h>
#include <utility>

namespace {

const char FOUR_SCORE[] = "Four score and seven years ago";

TEST(Lookup3, PublishedDriverValues) {
    EXPECT_EQ(0xdeadbeefu, hashlittle(nullptr, 0, 0));
    struct Case {
        const char* key;
        unsigned length, c, b, hashC, hashB;
    } cases[] = {
        {"", 0, 0, 0, 0xdeadbeefu, 0xdeadbeefu},
        {"", 0, 0, 0xdeadbeefu, 0xbd5b7ddeu, 0xdeadbeefu},
        {"", 0, 0xdeadbeefu, 0xdeadbeefu, 0x9c093ccdu, 0xbd5b7ddeu},
        {FOUR_SCORE, 30, 0, 0, 0x17770551u, 0xce7226e6u},
        {FOUR_SCORE, 30, 0, 1, 0xe3607caeu, 0xbd371de4u},
        {FOUR_SCORE, 30, 1, 0, 0xcd628161u, 0x6cbea4b3u},
    };
    for (const Case& t : cases) {
        unsigned c = t.c, b = t.b;
        hashlittle2(t.key, t.length, &c, &b);
        EXPECT_EQ(std::make_pair(t.hashC, t.hashB), std::make_pair(c, b))
            << t.key << " seeds " << t.c << "," << t.b;
        if (t.b == 0) // hashlittle is hashlittle2's first word with a zero second seed
            EXPECT_EQ(t.hashC, hashlittle(t.key, t.length, t.c)) << t.key << " seed " << t.c;
    }
}

// Lengths 0..25: every tail length (1..12) with and without a full block before
// it, and two blocks plus one byte; the key has bytes >= 0x80. Row n is length n.
// Expected values come from an independent Python rendering of the published
// algorithm over key[i] = (i * 131 + 7) & 0xff: hashlittle with initval
// 0x9e3779b9, then hashlittle2 with *pc = 0x01234567, *pb = 0x89abcdef.
const unsigned PREFIX_HASHES[][3] = {
    {0x7ce538a8u, 0x697cd245u, 0xdfd10456u}, {0xfcad3abcu, 0x27412fecu, 0x5bca2642u},
    {0x07b67ebbu, 0x32fcd0deu, 0xafb8712eu}, {0x0874b7aau, 0x89e895eeu, 0x801449c0u},
    {0x22bec807u, 0xd433435fu, 0x18b95bc0u}, {0x51c3ee05u, 0x464ad13au, 0xc23b4fa1u},
    {0x8bee61cau, 0x39fbff01u, 0xc7dd6e6fu}, {0xaea90dbbu, 0xbaa3e3b5u, 0xe79d4120u},
    {0xa638c463u, 0x85920513u, 0xaf644ee3u}, {0x4c036640u, 0x5db90c1du, 0x234cdf0du},
    {0xa9191d6au, 0xcb972774u, 0xbc1a622fu}, {0xdcb5aef8u, 0xd345218du, 0x59aabf0eu},
    {0x6f93a482u, 0x5c69988fu, 0x5149e51fu}, {0x440dc2c5u, 0x4ad7457au, 0x54021866u},
    {0xd6a2a645u, 0x26979903u, 0xf8a7c072u}, {0xb06f0cfbu, 0x4cf5976eu, 0xf9f736feu},
    {0xf05f878fu, 0xd85609b4u, 0xc4d8b3afu}, {0x416b4786u, 0x7003c6e3u, 0xc80e1fd1u},
    {0xc5f16faau, 0x904a8a17u, 0x605a577eu}, {0x34d5cd56u, 0xd022b019u, 0x60464587u},
    {0xdadec9cfu, 0xc420f4efu, 0xecc06a64u}, {0x6df4bb08u, 0x7f97c349u, 0x07927885u},
    {0x810cceddu, 0xd4a2fea4u, 0x26267db1u}, {0x2e236218u, 0x4c09d585u, 0x6537206eu},
    {0xcc98b344u, 0xe9418d9eu, 0x3f7c7976u}, {0xb1bd7e85u, 0x5bbc93cbu, 0x4ab14213u},
};

TEST(Lookup3, EveryLengthAndAlignment) {
    unsigned char key[25];
    for (unsigned i = 0; i < sizeof key; ++i)
        key[i] = static_cast<unsigned char>(i * 131 + 7);
    for (unsigned n = 0; n <= sizeof key; ++n)
        for (unsigned offset = 0; offset < 4; ++offset) {
            // An exact-size heap block per case, so ASan flags any read past the key's end.
            std::unique_ptr<unsigned char[]> buf(new unsigned char[offset + n]);
            std::memcpy(buf.get() + offset, key, n);
            const unsigned char* at = buf.get() + offset;
            EXPECT_EQ(PREFIX_HASHES[n][0], hashlittle(at, n, 0x9e3779b9u)) << n << "@" << offset;
            unsigned c = 0x01234567u, b = 0x89abcdefu;
            hashlittle2(at, n, &c, &b);
            EXPECT_EQ(std::make_pair(PREFIX_HASHES[n][1], PREFIX_HASHES[n][2]), std::make_pair(c, b))
                << n << "@" << offset;
            c = 0x5eed;
            b = 0;
            hashlittle2(at, n, &c, &b);
            EXPECT_EQ(hashlittle(at, n, 0x5eed), c) << n << "@" << offset;
        }
}

} // namespace
