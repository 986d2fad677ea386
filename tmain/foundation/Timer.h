#pragma once
#include <chrono>
#include <cstdint>
#include <tmain/Export.h>

namespace core {

/// Millisecond stopwatch on a monotonic clock.
class TMAIN_API Timer {
public:
    Timer() { reset(); }
    void reset() { mStart = std::chrono::steady_clock::now(); }
    uint64_t getMilliseconds() const {
        return (uint64_t)std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now() - mStart)
            .count();
    }

private:
    std::chrono::steady_clock::time_point mStart;
};

} // namespace core
