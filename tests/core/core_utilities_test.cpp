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
    memset(p, 0xAB, 80);
    EXPECT_JOINED("0|976|1|1|", (uintptr_t)p % 16, pool.getFree(), pool.getAllocationCount(),
                  pool.allocate(1) == nullptr); // one per pool
    core::SmartPtr<tmaintest::LogCapture> log(new tmaintest::LogCapture);
    logging::Logger logger("pool");
    logger.addAppender(log.get());
    pool.dump(&logger);
    EXPECT_EQ(
        (std::vector<std::string>{"Memory dump for 1 allocations:",
                                  core::formatMessagef("\tAddress: %X, size: 80", (unsigned)(uintptr_t)p),
                                  std::string(20, '^'), "Memory dump finished"}),
        log->messages());
    pool.deallocate(p); // the free rest is absorbed again
    EXPECT_JOINED("1072|0|1|", pool.getFree(), pool.getAllocationCount(), pool.allocate(1) == nullptr);
    int local;
    for (void* bad : {p, (void*)&local}) // freed twice, and never from this pool
        EXPECT_MESSAGE(
            core::IllegalArgumentException,
            core::formatMessagef("MemoryPool::deallocate: %p is not an allocation of this pool", bad),
            pool.deallocate(bad));
    EXPECT_MESSAGE(
        core::IllegalArgumentException,
        "MemoryPool: a region of 4294967312 bytes (4294967280 bytes and 2 block headers) is too large",
        MemoryPool(MemoryPool::ALIGN_16, 0xFFFFFFF0u, 2));

    // Rounding per request size, and requests larger than the free space.
    const std::pair<unsigned, unsigned> rounding[] = {{16, 16}, {17, 32}, {31, 256}, {0, 0}, {1, 16}};
    for (auto [request, payload] : rounding) {
        MemoryPool p16(MemoryPool::ALIGN_16, 1024, 4);
        ASSERT_NE(nullptr, p16.allocate(request));
        EXPECT_EQ(1072u - 16 - payload, p16.getFree()) << request;
    }
    MemoryPool exact((MemoryPool::AlignmentType)1, 100, 1); // the whole block: no room left for a header
    EXPECT_JOINED("1|0|0|116|", exact.allocate(101) == nullptr, exact.allocate(100) == nullptr,
                  exact.getFree(), exact.getSize());
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
    EXPECT_JOINED("268435461|268433941|0.005|268434|", c.getLastTimeMillis(), c.getLastTimeStepMillis(),
                  c.getLastTime(), FakeClock(c).getLastTimeStep());
    tarso::core::TimeCounter real; // the step is the difference of the readings
    unsigned before = real.getLastTimeMillis();
    real.refresh();
    EXPECT_EQ(real.getLastTimeMillis() - before, real.getLastTimeStepMillis());
}

TEST(StringUtil, ParsesVectorsWithAnySeparatorRun) {
    const std::pair<const char*, const char*> cases[] = {{"1,2;3", "1|1|2|3|1|1|2|"},
                                                         {"1 2", "0|1|2|0|1|1|2|"},
                                                         {"1e2 ,; -0.5;;3x", "1|100|-0.5|3|1|100|-0.5|"},
                                                         {"4\t5 6", "0|4|0|0|0|4|0|"},
                                                         {"", "0|0|0|0|0|0|0|"},
                                                         {nullptr, "0|0|0|0|0|0|0|"},
                                                         {"a,b", "0|0|0|0|0|0|0|"}};
    for (auto [text, want] : cases) {
        tarso::math::Vector3 v3;
        tarso::math::Vector2 v2;
        EXPECT_JOINED(want, tarso::core::StringUtil::parseVector3(text, v3), v3.x, v3.y, v3.z,
                      tarso::core::StringUtil::parseVector2(text, v2), v2.x, v2.y);
    }
}

} // namespace
