#pragma once

#include <chrono>
#include <functional>
#include <utility>

namespace tool {

/// How long a command takes frames, counted from when this is made.
class TimeLimit
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param limitSeconds  0: no limit
    /// @param clock         what tells the time; a test has one of its own
    explicit TimeLimit(double limitSeconds, std::function<Clock::time_point()> clock = Clock::now)
        : seconds(limitSeconds), now(std::move(clock)), start(now())
    {
    }

    bool exists() const { return seconds > 0; }
    bool isOver() const { return exists() && passedSeconds() >= seconds; }

    /// 0 to 1, of the whole time; 0 without a limit.
    double passedShare() const;

    /// Milliseconds until it is over, never too few.
    /// @return `atMost` if that is less; without a limit always. -1 as `atMost`: for ever
    int remainingMs(int atMost) const;

private:
    double passedSeconds() const { return std::chrono::duration<double>(now() - start).count(); }

    double seconds;
    std::function<Clock::time_point()> now;
    Clock::time_point start;
};

} // namespace tool
