// Cache map: merging rules, the deliberate cut-back, lookups and the two
// serialized layouts.
#include "../support/TestSupport.h"
#include <random>
#include <tmain/core/Serializer.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheMap.h>
#include <vector>

using tarso::vfs::CacheMap;
using tarso::vfs::CacheMapEntry;
typedef std::vector<std::pair<unsigned, unsigned>> Ranges;

namespace {

Ranges ranges(const CacheMap& m) {
    Ranges r;
    for (const CacheMapEntry& e : m.getEntries())
        r.emplace_back(e.mStart, e.mSize);
    return r;
}

TEST(CacheMap, MergingRules) {
    const struct {
        Ranges adds, want;
    } cases[] = {
        {{}, {}},
        {{{10, 5}}, {{10, 5}}},
        {{{0, 10}, {10, 10}}, {{0, 20}}},          // touching
        {{{0, 10}, {11, 5}}, {{0, 10}, {11, 5}}},  // one byte apart
        {{{11, 5}, {0, 10}}, {{0, 10}, {11, 5}}},  // kept sorted
        {{{0, 10}, {20, 10}, {5, 20}}, {{0, 30}}}, // bridging
        {{{0, 100}, {10, 5}}, {{0, 15}}},          // inside one that ends later: cut back (kept)
        {{{0, 10}, {0, 0}}, {{0, 10}}},            // empty ranges record nothing
        {{{0, 5}, {10, 5}, {20, 5}, {30, 5}, {40, 5}, {50, 5}, {60, 5}, {70, 5}, {80, 5}, {90, 5}, {3, 90}},
         {{0, 95}}}, // backward merging walks to the front, past gaps
    };
    for (const auto& c : cases) {
        CacheMap m;
        unsigned total = 0;
        for (const auto& a : c.adds)
            m.addEntry(a.first, a.second);
        for (const auto& w : c.want)
            total += w.second;
        EXPECT_EQ(c.want, ranges(m)) << c.adds.size() << " adds";
        EXPECT_EQ(total, m.getCachedSize());
    }
    CacheMap two;
    EXPECT_EQ(nullptr, two.getEntry(0, 1));
    two.addEntry(0, 10);
    two.addEntry(11, 9);
    EXPECT_EQ(nullptr, two.getEntry(0, 20)); // spans two entries: absent, even one byte short
    ASSERT_NE(nullptr, two.getEntry(11, 9));
    EXPECT_EQ(11u, two.getEntry(12, 2)->mStart);
    EXPECT_EQ(19u, two.getEntries().back().getEnd());
}

TEST(CacheMap, RandomRangesKeepSortedSeparateEntriesThatHoldTheLastRange) {
    std::mt19937 rng(7);
    CacheMap m;
    for (int i = 0; i < 3000; ++i) {
        unsigned start = rng() % 5000, size = 1 + rng() % 300;
        m.addEntry(start, size);
        ASSERT_NE(nullptr, m.getEntry(start, size)) << i;
        long long previousEnd = -1;
        for (const CacheMapEntry& e : m.getEntries()) {
            ASSERT_GT(e.mSize, 0u);
            ASSERT_GT((long long)e.mStart, previousEnd) << "entries overlap or touch";
            previousEnd = (long long)e.mStart + e.mSize;
        }
    }
}

TEST(CacheMap, SerializedFormsBothByteOrdersLegacyAndShortReads) {
    tarso::core::Serializer s(nullptr);
    for (auto order : {tarso::platform::ENDIAN_LITTLE, tarso::platform::ENDIAN_BIG}) {
        CacheMap m;
        m.addEntry(0, 10);
        m.addEntry(100, 50);
        m.addEntry(0xFFFFFF00u, 0xFF);
        tarso::stream::ByteOutputStream out;
        out.setEndianness(order);
        out.open(tarso::stream::Stream::OM_WRITE);
        m.serialize(&out, &s);
        // Raw version 2 and the Object part's (little-endian whatever the order), the type name, the list.
        std::string want("\2\0\0\0\2\0\0\0", 8);
        for (unsigned v : {20u, 3u, 0u, 10u, 100u, 50u, 0xFFFFFF00u, 0xFFu}) {
            for (int i = 0; i < 4; ++i)
                want += (char)(v >> (order == tarso::platform::ENDIAN_BIG ? 24 - 8 * i : 8 * i));
            want += v == 20u ? "tarso::vfs::CacheMap" : "";
        }
        EXPECT_EQ(want, tmaintest::bytesOf(out));

        tarso::stream::ByteInputStream in(out.getBytes(), out.getSize(), false);
        in.setEndianness(order);
        CacheMap back;
        back.deserialize(&in, &s);
        EXPECT_EQ(ranges(m), ranges(back));
    }

    // Version 1: the Object part in its legacy layout (just the type name).
    tarso::stream::ByteOutputStream out;
    out.open(tarso::stream::Stream::OM_WRITE);
    out.write("\x01\0\0\0", 1, 4);
    out.write(std::string("tarso::vfs::CacheMap"));
    for (unsigned v : {2u, 20u, 4u, 0u, 3u}) // unmerged and out of order: read as written
        out.write(v);
    tarso::stream::ByteInputStream in(out.getBytes(), out.getSize(), false);
    CacheMap legacy;
    legacy.deserialize(&in, &s);
    EXPECT_EQ(Ranges({{20, 4}, {0, 3}}), ranges(legacy));

    // Cut short: the message names the field; the list keeps what was read.
    tarso::stream::ByteInputStream cut(out.getBytes(), out.getSize() - 2, false);
    CacheMap partial;
    const std::string msg =
        tmaintest::messageOf<tarso::stream::IOException>([&] { partial.deserialize(&cut, &s); });
    EXPECT_EQ(0u, msg.find("Error deserializing object [tarso::vfs::CacheMap@")) << msg;
    EXPECT_NE(std::string::npos, msg.find("]: mEntries[]::mSize")) << msg;
    EXPECT_EQ(Ranges({{20, 4}}), ranges(partial));
}

} // namespace
