#include <tmain/core/TimeCounter.h>

namespace tarso {
namespace core {

TimeCounter::TimeCounter() : mLastTimeMillis(0), mLastTimeStepMillis(0), mLastTime(0), mLastTimeStep(0) {
    reset();
}

TimeCounter::TimeCounter(const TimeCounter& other) = default;
TimeCounter& TimeCounter::operator=(const TimeCounter& other) = default;
TimeCounter::~TimeCounter() {}

void TimeCounter::reset() {
    mTimer.reset();
    // The restarted timer's base reading is 0: the step is the reading itself.
    unsigned now = readMilliseconds();
    store(now, now);
}

float TimeCounter::refresh() {
    unsigned now = readMilliseconds();
    store(now, now - mLastTimeMillis);
    return mLastTimeStep;
}

unsigned TimeCounter::readMilliseconds() const {
    return (unsigned)mTimer.getMilliseconds();
}

void TimeCounter::store(unsigned millis, unsigned stepMillis) {
    mLastTimeMillis = millis;
    mLastTimeStepMillis = stepMillis;
    mLastTime = (float)(millis & 0x0FFFFFFF) * 0.001f;
    mLastTimeStep = (float)(stepMillis & 0x0FFFFFFF) * 0.001f;
}

} // namespace core
} // namespace tarso
