#include <logger/SteadyClock.h>

#include <algorithm>

namespace vlogger {

Clock::Instant SteadyClock::now() const
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

std::chrono::microseconds SteadyClock::systemTime() const
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
}

std::optional<Clock::Duration> SteadyClock::realTimeUntil(Instant deadline) const
{
    return std::max(deadline - now(), Duration::zero());
}

} // namespace vlogger
