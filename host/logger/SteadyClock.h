#pragma once

#include <logger/Clock.h>

namespace vlogger {

/// The machine's own time.
class SteadyClock : public Clock
{
public:
    Instant now() const override;
    std::chrono::microseconds systemTime() const override;
    std::optional<Duration> realTimeUntil(Instant deadline) const override;
    void onJump(std::function<void()>) override {}
};

} // namespace vlogger
