#include <vqutil/TimeOfDay.h>

#include "vqutil/TimeOfDayClock.h"

#include <atomic>
#include <ctime>

namespace {

constexpr uint64_t MICROSECONDS_PER_SECOND = 1'000'000;
constexpr uint64_t MICROSECONDS_PER_DAY = uint64_t{24} * 60 * 60 * MICROSECONDS_PER_SECOND;

uint64_t systemClock() noexcept
{
    timespec now{};
    // Cannot fail: every kernel has this clock and the pointer is good.
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * MICROSECONDS_PER_SECOND + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

constinit std::atomic<vqhost::EpochClock> epochClock{systemClock};

} // namespace

namespace vqhost {

void setEpochClock(EpochClock clock) noexcept
{
    epochClock = clock != nullptr ? clock : systemClock;
}

} // namespace vqhost

uint64_t getMicroSecondsOfDay()
{
    return epochClock.load()() % MICROSECONDS_PER_DAY;
}
