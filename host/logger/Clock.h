#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace vlogger {

/// The time that a virtual logger lives in. Virtual, so that a test can let an hour pass in no time.
///
/// Threads: any.
class Clock
{
public:
    using Duration = std::chrono::nanoseconds;
    /// Time since some fixed moment; never goes back.
    using Instant = std::chrono::nanoseconds;

    virtual ~Clock() = default;

    virtual Instant now() const = 0;

    /// Time since the epoch; may jump when somebody sets the system's clock.
    virtual std::chrono::microseconds systemTime() const = 0;

    /// How long a wait until `deadline` takes in real time. Nothing if real time has no say in it: the clock then
    /// calls what was given to onJump().
    virtual std::optional<Duration> realTimeUntil(Instant deadline) const = 0;

    /// Sets what is called, from any thread, whenever time has moved on by a step. Empty: nothing.
    virtual void onJump(std::function<void()> callback) = 0;
};

} // namespace vlogger
