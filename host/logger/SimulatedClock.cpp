#include <logger/SimulatedClock.h>

#include <utility>

namespace vlogger {

void SimulatedClock::advance(Duration duration)
{
    const MutexLock lock(mutex);
    current += duration;
    // Under the lock: once onJump({}) has returned, the one who waited may be gone.
    if (jumped) {
        jumped();
    }
}

void SimulatedClock::setSystemTime(std::chrono::microseconds time)
{
    const MutexLock lock(mutex);
    systemOffset = time - std::chrono::duration_cast<std::chrono::microseconds>(current);
}

Clock::Instant SimulatedClock::now() const
{
    const MutexLock lock(mutex);
    return current;
}

std::chrono::microseconds SimulatedClock::systemTime() const
{
    const MutexLock lock(mutex);
    return systemOffset + std::chrono::duration_cast<std::chrono::microseconds>(current);
}

std::optional<Clock::Duration> SimulatedClock::realTimeUntil(Instant deadline) const
{
    const MutexLock lock(mutex);
    return deadline <= current ? std::optional(Duration::zero()) : std::nullopt;
}

void SimulatedClock::onJump(std::function<void()> callback)
{
    const MutexLock lock(mutex);
    jumped = std::move(callback);
}

} // namespace vlogger
