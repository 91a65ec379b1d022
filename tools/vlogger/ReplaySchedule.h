#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace tool {

/// When each frame of a replay is due: its place in the capture, divided by the speed, after the start. Since every
/// time is counted from the start, errors do not add up.
class ReplaySchedule
{
public:
    using Instant = std::chrono::nanoseconds;

    /// @param speedFactor  above 0; 0: as fast as possible, everything is due at once
    ReplaySchedule(Instant startsAt, double speedFactor) : start(startsAt), speed(speedFactor) {}

    /// @param sinceBeginUs  place of the frame, in microseconds behind the beginning
    Instant dueAt(uint64_t sinceBeginUs) const
    {
        if (speed == 0) {
            return start;
        }
        const double place = static_cast<double>(sinceBeginUs) * 1000.0 / speed;
        return start + Instant(static_cast<int64_t>(std::min(place, FAR_NS)));
    }

    bool isPaced() const { return speed != 0; }

    void startAt(Instant startsAt) { start = startsAt; }

    /// Lets another round begin when this place is due.
    void goOnAt(uint64_t sinceBeginUs) { start = dueAt(sinceBeginUs); }

private:
    /// About thirty years: what is further away will not be waited for, and must not overflow.
    static constexpr double FAR_NS = 1e18;

    Instant start;
    double speed;
};

/// How late the frames of a replay went out.
class Lateness
{
public:
    void add(std::chrono::nanoseconds late)
    {
        ++frames;
        sum += late;
        worst = late > worst ? late : worst;
        behind += late > TOLERANCE ? 1U : 0U;
    }

    uint64_t count() const { return frames; }
    double meanUs() const
    {
        return frames == 0 ? 0 : static_cast<double>(sum.count()) / 1000 / static_cast<double>(frames);
    }
    double worstUs() const { return static_cast<double>(worst.count()) / 1000; }
    /// Frames that were more than a millisecond late.
    uint64_t lateFrames() const { return behind; }

private:
    static constexpr std::chrono::milliseconds TOLERANCE{1};

    uint64_t frames = 0;
    uint64_t behind = 0;
    std::chrono::nanoseconds sum{0};
    std::chrono::nanoseconds worst{0};
};

} // namespace tool
