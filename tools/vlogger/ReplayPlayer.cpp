#include "ReplayPlayer.h"

#include <algorithm>

namespace tool {

namespace {

/// Frames of several channels may stand in a capture in another order than their times; not by more than this.
constexpr uint64_t DISORDER_US = 1000000;

} // namespace

bool ReplayPlayer::play(const Next& next, const Look& look)
{
    std::optional<uint64_t> beginUs;
    lastUs = 0;
    capture::CaptureFrame frame;
    while (next(frame)) {
        beginUs = beginUs.value_or(frame.frame.timestampUs);
        const uint64_t placeUs = frame.frame.timestampUs - std::min(*beginUs, frame.frame.timestampUs);
        length = std::max(length.value_or(0), placeUs);
        if (placeUs > part.toUs && placeUs - part.toUs > DISORDER_US) {
            // The rest may be long, and the next round is due.
            break;
        }
        if (placeUs >= part.fromUs && placeUs <= part.toUs &&
            !playFrame(frame.frame, placeUs - part.fromUs, look)) {
            return false;
        }
    }
    if (lastUs != 0) {
        schedule.goOnAt(lastUs);
    } else {
        // Nothing says how long a round of a single time is: the next one starts when it is there.
        hasStarted = false;
    }
    return true;
}

bool ReplayPlayer::playFrame(const capture::CandumpFrame& frame, uint64_t placeUs, const Look& look)
{
    if (!hasStarted) {
        // Reading up to the part, or waiting for an input, is no lateness.
        schedule.startAt(clock.now());
        hasStarted = true;
    }
    if (!schedule.isPaced()) {
        sent += send(frame) ? 1U : 0U;
        look();
        return true;
    }
    // A frame that stands behind a later one goes out right behind it.
    lastUs = std::max(lastUs, placeUs);
    const auto due = schedule.dueAt(lastUs);
    if (!clock.waitUntil(due, look)) {
        return false;
    }
    if (send(frame)) {
        ++sent;
        late.add(clock.now() - due);
    }
    return true;
}

} // namespace tool
