#include "tests/support/TestSupport.h"

#include <cstdint>
#include <tmain/core/MemoryPool.h>
#include <tmain/core/StringUtil.h>
#include <tmain/core/TimeCounter.h>
#include <tmain/foundation/Exception.h>

using tarso::core::MemoryPool;

namespace {

TEST(MemoryPool, FiguresRoundingOneAllocationAndDump) {
    MemoryPool pool(MemoryPool::ALIGN_16, 1024, 4);
    EXPECT_JOINED("1088|1072|1072|16|0|", pool.getSize(), pool.getInitialFree(), pool.getFree(),
                  pool.getHeaderSize(), pool.getAllocationCount());
    void* p = pool.allocate(20); // (20 / 16 + 20 % 16) x 16 = 80
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(0u, (uintptr_t)p % 16);
    EXPECT_JOINED("976|1|", pool.getFree(), pool.getAllocationCount());
    memset(p, 0xAB, 80);
    EXPECT_EQ(nullptr, pool.allocate(1)); // one allocation per pool

    core::SmartPtr<tmaintest::LogCapture> log(new tmaintest::LogCapture);
    logging::Logger logger("pool");
    logger.addAppender(log.get());
    pool.dump(&logger);
    char address[32];
    snprintf(address, sizeof(address), "\tAddress: %X, size: 80", (unsigned)(uintptr_t)p);
    EXPECT_EQ((std::vector<std::string>{"Memory dump for 1 allocations:", address, std::string(20, '^'),
                                        "Memory dump finished"}),
              log->messages());

    pool.deallocate(p); // the free rest is absorbed again
    EXPECT_JOINED("1072|0|", pool.getFree(), pool.getAllocationCount());
    EXPECT_EQ(nullptr, pool.allocate(1));
    EXPECT_EQ(0u, tmaintest::messageOf<core::IllegalArgumentException>([&] {
                      pool.deallocate(p);
                  }).find("MemoryPool::deallocate: "));
    int local;
    EXPECT_NE("<no exception>",
              tmaintest::messageOf<core::IllegalArgumentException>([&] { pool.deallocate(&local); }));
    EXPECT_NE("<no exception>", tmaintest::messageOf<core::IllegalArgumentException>(
                                    [&] { MemoryPool(MemoryPool::ALIGN_16, 0xFFFFFFF0u, 2); }));

    // Rounding per request size, and requests larger than the free space.
    const std::pair<unsigned, unsigned> rounding[] = {{16, 16}, {17, 32}, {31, 256}, {0, 0}, {1, 16}};
    for (auto [request, payload] : rounding) {
        MemoryPool p16(MemoryPool::ALIGN_16, 1024, 4);
        ASSERT_NE(nullptr, p16.allocate(request));
        EXPECT_EQ(1072u - 16 - payload, p16.getFree()) << request;
    }
    MemoryPool exact((MemoryPool::AlignmentType)1, 100, 1);
    EXPECT_EQ(nullptr, exact.allocate(101));
    ASSERT_NE(nullptr, exact.allocate(100)); // the whole block, no room left for a header
    EXPECT_JOINED("0|116|", exact.getFree(), exact.getSize());
}

struct FakeClock : tarso::core::TimeCounter {
    unsigned now = 0;
    unsigned readMilliseconds() const override { return now; }
};

TEST(TimeCounter, StepsMillisAndTwentyEightBitSeconds) {
    FakeClock c;
    c.now = 1500;
    c.reset();
    EXPECT_JOINED("1500|1500|1.5|1.5|", c.getLastTimeMillis(), c.getLastTimeStepMillis(), c.getLastTime(),
                  c.getLastTimeStep());
    c.now = 1520;
    EXPECT_FLOAT_EQ(0.02f, c.refresh());
    c.now = 0x10000005; // only the low 28 bits enter the seconds
    c.refresh();
    EXPECT_JOINED("268435461|268433941|", c.getLastTimeMillis(), c.getLastTimeStepMillis());
    EXPECT_FLOAT_EQ(0.005f, c.getLastTime());
    EXPECT_FLOAT_EQ((float)(268433941u & 0x0FFFFFFF) * 0.001f, c.getLastTimeStep());
    FakeClock copy(c);
    EXPECT_EQ(c.getLastTimeStepMillis(), copy.getLastTimeStepMillis());

    tarso::core::TimeCounter real; // the timer only moves forward, and the step is the difference
    unsigned before = real.getLastTimeMillis();
    real.refresh();
    EXPECT_EQ(real.getLastTimeMillis() - before, real.getLastTimeStepMillis());
    EXPECT_GE(real.getLastTimeMillis(), before);
}

TEST(StringUtil, ParsesVectorsWithAnySeparatorRun) {
    using tarso::core::StringUtil;
    struct Case {
        const char* text;
        bool ok3, ok2;
        float x, y, z;
    } cases[] = {{"1,2;3", true, true, 1, 2, 3},
                 {"1 2", false, true, 1, 2, 0},
                 {"1e2 ,; -0.5;;3x", true, true, 100, -0.5f, 3},
                 {"4\t5 6", false, false, 4, 0, 0},
                 {"", false, false, 0, 0, 0},
                 {nullptr, false, false, 0, 0, 0},
                 {"a,b", false, false, 0, 0, 0}};
    for (const Case& c : cases) {
        tarso::math::Vector3 v3;
        tarso::math::Vector2 v2;
        std::string want = tmaintest::cat{c.ok3, c.x, c.y, c.z, c.ok2, c.x, c.y};
        std::string got = tmaintest::cat{StringUtil::parseVector3(c.text, v3), v3.x, v3.y, v3.z,
                                         StringUtil::parseVector2(c.text, v2), v2.x, v2.y};
        EXPECT_EQ(want, got) << (c.text ? c.text : "null");
    }
}

} // namespace
