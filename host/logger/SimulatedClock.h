#pragma once

#include <logger/Clock.h>
#include <vqutil/Mutex.h>

namespace vlogger {

/// Time that stands still until somebody moves it. For tests and for replays that shall not take as long as what
/// they replay.
class SimulatedClock : public Clock
{
public:
    /// @param systemTimeAtStart  system time at the moment 0 of this clock
    explicit SimulatedClock(std::chrono::microseconds systemTimeAtStart = std::chrono::microseconds{0})
        : systemOffset(systemTimeAtStart)
    {
    }

    /// Lets time pass. Everything that falls due meanwhile happens at the new time, in the order of its deadlines,
    /// on the thread of whoever waits for it.
    void advance(Duration duration) VQ_EXCLUDES_LOCK(mutex);

    /// Sets the system's clock, as a user or a time service does; now() is not touched.
    void setSystemTime(std::chrono::microseconds time) VQ_EXCLUDES_LOCK(mutex);

    Instant now() const override VQ_EXCLUDES_LOCK(mutex);
    std::chrono::microseconds systemTime() const override VQ_EXCLUDES_LOCK(mutex);
    std::optional<Duration> realTimeUntil(Instant deadline) const override VQ_EXCLUDES_LOCK(mutex);
    void onJump(std::function<void()> callback) override VQ_EXCLUDES_LOCK(mutex);

private:
    mutable Mutex mutex;
    Instant current VQ_GUARDED_BY(mutex){0};
    std::chrono::microseconds systemOffset VQ_GUARDED_BY(mutex);
    std::function<void()> jumped VQ_GUARDED_BY(mutex);
};

} // namespace vlogger
