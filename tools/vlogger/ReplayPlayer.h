#pragma once

#include "ReplayClock.h"
#include "ReplaySchedule.h"

#include <capture/CaptureFrame.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace tool {

/// Sends the frames of a capture at their times, once or again and again. Every time is counted from one start: a frame
/// that goes out late moves none behind it, and a capture that is played again follows its own end without a gap.
class ReplayPlayer
{
public:
    /// The part of a capture that is played, in microseconds behind its first frame; both ends belong to it.
    struct Part
    {
        uint64_t fromUs;
        uint64_t toUs;
    };
    using Next = std::function<bool(capture::CaptureFrame& frame)>;
    /// Sends a frame; false if there is nothing to send for it.
    using Send = std::function<bool(const capture::CandumpFrame& frame)>;
    using Look = std::function<void()>;

    /// @param replayClock  outlives this
    /// @param speedFactor  as for ReplaySchedule
    ReplayPlayer(ReplayClock& replayClock, double speedFactor, Part playedPart, Send sendFrame)
        : clock(replayClock), schedule(replayClock.now(), speedFactor), part(playedPart), send(std::move(sendFrame))
    {
    }

    /// Plays the capture once.
    /// @param next  brings its frames from the first on; false at the end
    /// @param look  called now and then
    /// @return false if the user has stopped it while it waited
    bool play(const Next& next, const Look& look);

    uint64_t framesSent() const { return sent; }
    /// Of the frames that were sent at a speed.
    const Lateness& lateness() const { return late; }
    /// From the first frame to the last that was looked at, in microseconds; nothing if the capture has no frame.
    std::optional<uint64_t> lengthUs() const { return length; }

private:
    bool playFrame(const capture::CandumpFrame& frame, uint64_t placeUs, const Look& look);

    ReplayClock& clock;
    ReplaySchedule schedule;
    const Part part;
    const Send send;
    Lateness late;
    std::optional<uint64_t> length;
    uint64_t sent = 0;
    bool hasStarted = false;
    uint64_t lastUs = 0; ///< place of the frame before in the part
};

} // namespace tool
