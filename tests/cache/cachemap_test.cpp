// Cache map: merging rules, the deliberate cut-back, lookups and the two
// serialized layouts.
#include <gtest/gtest.h>
#include <random>
#include <tmain/core/Serializer.h>
#include <tmain/stream/ByteInputStream.h>
#include <tmain/stream/ByteOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheMap.h>
#include <vector>

using tarso::vfs::CacheMap;
using tarso::vfs::CacheMapEntry;

namespace {

std::vector<CacheMapEntry> entries(const CacheMap& m) {
    return {m.getEntries().begin(), m.getEntries().end()};
}
std::vector<CacheMapEntry> E(std::initializer_list<std::pair<unsigned, unsigned>> l) {
    std::vector<CacheMapEntry> v;
    for (auto& p : l)
        v.emplace_back(p.first, p.second);
    return v;
}

TEST(CacheMap, MergingRules) {
    CacheMap m;
    EXPECT_EQ(nullptr, m.getEntry(0, 1));
    EXPECT_EQ(0u, m.getCachedSize());
    m.addEntry(10, 5);
    EXPECT_EQ(E({{10, 5}}), entries(m));

    CacheMap touch;
    touch.addEntry(0, 10);
    touch.addEntry(10, 10);
    EXPECT_EQ(E({{0, 20}}), entries(touch));

    CacheMap gap;
    gap.addEntry(0, 10);
    gap.addEntry(11, 5);
    EXPECT_EQ(E({{0, 10}, {11, 5}}), entries(gap));
    CacheMap reversed;
    reversed.addEntry(11, 5);
    reversed.addEntry(0, 10);
    EXPECT_EQ(E({{0, 10}, {11, 5}}), entries(reversed));

    CacheMap bridge;
    bridge.addEntry(0, 10);
    bridge.addEntry(20, 10);
    bridge.addEntry(5, 20);
    EXPECT_EQ(E({{0, 30}}), entries(bridge));

    // A range inside an entry that ends before it cuts the entry back: kept.
    CacheMap cut;
    cut.addEntry(0, 100);
    cut.addEntry(10, 5);
    EXPECT_EQ(E({{0, 15}}), entries(cut));

    // A range spanning two entries is absent, even one byte short.
    CacheMap two;
    two.addEntry(0, 10);
    two.addEntry(11, 9);
    EXPECT_EQ(nullptr, two.getEntry(0, 20));
    ASSERT_NE(nullptr, two.getEntry(11, 9));
    EXPECT_EQ(11u, two.getEntry(12, 2)->mStart);
    EXPECT_EQ(19u, two.getEntries().back().getEnd());

    // Backward merging walks to the front, past gaps: a range that starts in
    // a gap and reaches back... a later range covering several entries.
    CacheMap many;
    for (unsigned i = 0; i < 10; ++i)
        many.addEntry(i * 10, 5);
    many.addEntry(3, 90);
    EXPECT_EQ(E({{0, 95}}), entries(many));
    EXPECT_EQ(95u, many.getCachedSize());
    many.addEntry(0, 0); // empty ranges record nothing
    EXPECT_EQ(E({{0, 95}}), entries(many));
}

TEST(CacheMap, RandomRangesKeepSortedSeparateEntriesThatHoldTheLastRange) {
    std::mt19937 rng(7);
    CacheMap m;
    for (int i = 0; i < 3000; ++i) {
        unsigned start = rng() % 5000, size = 1 + rng() % 300;
        m.addEntry(start, size);
        ASSERT_NE(nullptr, m.getEntry(start, size)) << i;
        unsigned long long previousEnd = 0;
        bool first = true;
        for (const CacheMapEntry& e : m.getEntries()) {
            ASSERT_GT(e.mSize, 0u);
            if (!first)
                ASSERT_GT(e.mStart, previousEnd) << "entries overlap or touch";
            previousEnd = (unsigned long long)e.mStart + e.mSize;
            first = false;
        }
    }
}

void roundTrip(tarso::platform::Endianness order) {
    CacheMap m;
    m.addEntry(0, 10);
    m.addEntry(100, 50);
    m.addEntry(0xFFFFFF00u, 0xFF);
    tarso::stream::ByteOutputStream out;
    out.setEndianness(order);
    out.open(tarso::stream::Stream::OM_WRITE);
    tarso::core::Serializer s(nullptr);
    m.serialize(&out, &s);
    const unsigned char* b = out.getBytes();
    // Raw version 2, the Object part (raw 2, type name), then the count.
    const std::string type = "tarso::vfs::CacheMap";
    ASSERT_EQ(4u + 4 + 4 + type.size() + 4 + 3 * 8, out.getSize());
    EXPECT_EQ(0, memcmp(b, "\x02\0\0\0\x02\0\0\0", 8));
    bool big = order == tarso::platform::ENDIAN_BIG;
    unsigned char len[4] = {0, 0, 0, 0};
    len[big ? 3 : 0] = (unsigned char)type.size();
    EXPECT_EQ(0, memcmp(b + 8, len, 4));
    EXPECT_EQ(type, std::string((const char*)b + 12, type.size()));
    const unsigned char* count = b + 12 + type.size();
    EXPECT_EQ(3, count[big ? 3 : 0]);
    const unsigned char* lastStart = count + 4 + 16;
    EXPECT_EQ(0, memcmp(lastStart, big ? "\xFF\xFF\xFF\x00" : "\x00\xFF\xFF\xFF", 4));

    tarso::stream::ByteInputStream in(out.getBytes(), out.getSize(), false);
    in.setEndianness(order);
    CacheMap back;
    back.deserialize(&in, &s);
    EXPECT_EQ(entries(m), entries(back));
}

TEST(CacheMap, SerializedFormsBothByteOrdersLegacyAndShortReads) {
    roundTrip(tarso::platform::ENDIAN_LITTLE);
    roundTrip(tarso::platform::ENDIAN_BIG);

    // Version 1: the Object part in its legacy layout (just the type name).
    tarso::stream::ByteOutputStream out;
    out.open(tarso::stream::Stream::OM_WRITE);
    out.write("\x01\0\0\0", 1, 4);
    out.write(std::string("tarso::vfs::CacheMap"));
    out.write(2u);
    out.write(20u);
    out.write(4u);
    out.write(0u); // unmerged and out of order: read as written
    out.write(3u);
    tarso::core::Serializer s(nullptr);
    tarso::stream::ByteInputStream in(out.getBytes(), out.getSize(), false);
    CacheMap legacy;
    legacy.deserialize(&in, &s);
    EXPECT_EQ(E({{20, 4}, {0, 3}}), entries(legacy));

    // Cut short: the message names the field; the list keeps what was read.
    tarso::stream::ByteInputStream cut(out.getBytes(), out.getSize() - 2, false);
    CacheMap partial;
    try {
        partial.deserialize(&cut, &s);
        FAIL();
    } catch (const tarso::stream::IOException& e) {
        std::string msg = e.getMessage();
        EXPECT_EQ(0u, msg.find("Error deserializing object [tarso::vfs::CacheMap@"));
        EXPECT_NE(std::string::npos, msg.find("]: mEntries[]::mSize"));
    }
    EXPECT_EQ(E({{20, 4}}), entries(partial));
}

} // namespace
