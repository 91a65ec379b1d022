#include <logger/DeviceClock.h>

namespace vlogger {

namespace {

/// Two readings of two clocks differ a little each time. Only more than this is a clock that was set.
constexpr uint64_t STEP_US = 1000;

} // namespace

DeviceClock::DeviceClock(const Clock& clock) : time(clock), start(clock.now()), offset(measuredOffsetUs()) {}

uint64_t DeviceClock::nowUs() const
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(time.now() - start).count());
}

uint64_t DeviceClock::measuredOffsetUs() const
{
    return static_cast<uint64_t>(time.systemTime().count()) - nowUs();
}

uint64_t DeviceClock::offsetUs()
{
    const uint64_t measured = measuredOffsetUs();
    const uint64_t difference = measured > offset ? measured - offset : offset - measured;
    if (difference > STEP_US) {
        offset = measured;
    }
    return offset;
}

bool DeviceClock::setSynchronised(std::string_view name, bool synchronised)
{
    if (name != MAIN_NAME && name != EXTENSION_NAME) {
        return false;
    }
    (name == MAIN_NAME ? mainSynchronised : extensionSynchronised) = synchronised;
    return true;
}

bool DeviceClock::isSynchronised(std::string_view name) const
{
    return name == MAIN_NAME ? mainSynchronised : name == EXTENSION_NAME && extensionSynchronised;
}

} // namespace vlogger
