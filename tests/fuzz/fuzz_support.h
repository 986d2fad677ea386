// Helpers shared by the libFuzzer harnesses in this folder.
#pragma once
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tmain/foundation/Logger.h>

namespace fuzz {

/// Reports a broken invariant and aborts, which libFuzzer and the corpus
/// replay both count as a failure.
[[noreturn]] inline void fail(const char* harness, const char* what) {
    fprintf(stderr, "%s: %s\n", harness, what);
    abort();
}

/// Hostile input makes the streams log warnings for every fault; the fuzzer
/// does not need to see them.
inline void silenceLog() {
    if (logging::ConsoleAppender* console = logging::Logger::getRootLogger().getConsoleAppender())
        console->setThreshold(logging::LEVEL_OFF);
}

/// Small deterministic generator: the operations a harness performs come
/// from the input, so every run of one input does the same.
struct Rng {
    uint32_t mState;
    explicit Rng(uint32_t seed) : mState(seed * 2654435761u + 0x9E3779B9u) {}
    uint32_t next() {
        mState ^= mState << 13;
        mState ^= mState >> 17;
        mState ^= mState << 5;
        return mState;
    }
};

/// Input and output buffer sizes picked by two bits each: the smallest ones
/// walk every refill boundary, the largest the usual path.
inline unsigned bufferSize(unsigned bits) {
    static const unsigned sizes[4] = {1, 7, 300, 16384};
    return sizes[bits & 3];
}

} // namespace fuzz
