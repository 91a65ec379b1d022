#pragma once

#include <logger/Clock.h>

#include <cstdint>
#include <string_view>

namespace vlogger {

/// The clock that stamps records. It starts at zero with the logger; all devices share it.
class DeviceClock
{
public:
    static constexpr std::string_view MAIN_NAME = "fpgab";
    static constexpr std::string_view EXTENSION_NAME = "fpgac";

    explicit DeviceClock(const Clock& clock);

    /// Microseconds since the start.
    uint64_t nowUs() const;

    /// System time minus device time. Stays the same to the microsecond until somebody sets the system's clock.
    uint64_t offsetUs();

    /// @return false if there is no clock of that name
    bool setSynchronised(std::string_view name, bool synchronised);
    bool isSynchronised(std::string_view name) const;

private:
    uint64_t measuredOffsetUs() const;

    const Clock& time;
    const Clock::Instant start;
    uint64_t offset;
    bool mainSynchronised = true;
    bool extensionSynchronised = true;
};

} // namespace vlogger
