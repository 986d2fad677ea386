#pragma once
#include <tmain/Export.h>
#include <tmain/foundation/Timer.h>

namespace tarso {
namespace core {

/// A frame timer over core::Timer: refresh() once a frame, then read the
/// time of that refresh and the step since the one before, in milliseconds
/// or in float seconds. Only the low 28 bits of the milliseconds enter the
/// floats, so that they keep their precision (they wrap after about 74 hours).
class TMAIN_API TimeCounter {
public:
    TimeCounter();
    TimeCounter(const TimeCounter& other);
    TimeCounter& operator=(const TimeCounter& other);
    virtual ~TimeCounter();

    /// Restarts the timer; its reading becomes the time of the last refresh.
    virtual void reset();
    /// Takes a new reading; returns the step since the previous one in seconds.
    float refresh();

    float getLastTime() const { return mLastTime; }
    float getLastTimeStep() const { return mLastTimeStep; }
    unsigned getLastTimeMillis() const { return mLastTimeMillis; }
    unsigned getLastTimeStepMillis() const { return mLastTimeStepMillis; }

protected:
    /// The clock: the timer's milliseconds since its last restart.
    virtual unsigned readMilliseconds() const;
    /// Stores a reading and the step to it, as milliseconds and as seconds.
    void store(unsigned millis, unsigned stepMillis);

private:
    ::core::Timer mTimer;
    unsigned mLastTimeMillis;
    unsigned mLastTimeStepMillis;
    float mLastTime;
    float mLastTimeStep;
};

} // namespace core
} // namespace tarso
