#pragma once

#include <capture/CandumpLog.h>

#include <cstdint>

namespace capture {

/// Which way a frame went, seen from the logger.
enum class Direction : uint8_t
{
    UNKNOWN, ///< the capture does not say
    RECEIVED,
    SENT,
};

/// A frame of a capture, whatever its format: the fields of a log line, and what only a pcapng file can tell.
struct CaptureFrame
{
    CandumpFrame frame;
    uint16_t nanoseconds = 0; ///< 0 to 999, to be added to `frame.timestampUs`
    Direction direction = Direction::UNKNOWN;
    uint64_t droppedBefore = 0; ///< frames of this interface that were lost between the previous one and this one

    bool operator==(const CaptureFrame&) const = default;
};

} // namespace capture
