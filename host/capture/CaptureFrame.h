#pragma once

#include <capture/CandumpLog.h>

#include <cstdint>

namespace capture {

/// A frame of a capture, whatever its format.
struct CaptureFrame
{
    CandumpFrame frame;
    uint16_t nanoseconds = 0; ///< 0 to 999, to be added to `frame.timestampUs`
    Direction direction = Direction::UNKNOWN;
    uint64_t droppedBefore = 0; ///< frames of this interface that were lost between the previous one and this one

    bool operator==(const CaptureFrame&) const = default;
};

} // namespace capture
