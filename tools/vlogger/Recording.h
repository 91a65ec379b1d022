#pragma once

#include "FilterSet.h"
#include "MonitorReader.h"
#include "TimeLimit.h"

#include <capture/CaptureFile.h>

#include <cstdint>
#include <functional>
#include <limits>

namespace tool {

/// Brings the frames of a monitor into a capture until an end is reached.
///
/// Each frame is in the file before the next one is taken, so that a kill loses none that was taken but the one that
/// is just being written.
class Recording
{
public:
    struct End
    {
        uint64_t frames = std::numeric_limits<uint64_t>::max();
        TimeLimit time{0};
        std::function<bool()> isReaderGone = {}; ///< asked now and then; none: nobody reads along
    };

    Recording(FilterSet shownFrames, MonitorReader reader, capture::CaptureFile output, End reachedAt);

    /// Records to the end of the frames, of the time or of the user's patience. Of the last two, everything that has
    /// crossed the buses before is recorded.
    /// @return false if the virtual logger has gone
    /// @throws std::system_error if the capture cannot be written; it ends with the last whole frame then
    bool run(StopSignal& stop);

    /// Writes what a capture ends with.
    void finish() { file.finish(); }

    uint64_t framesWritten() const { return file.framesWritten(); }
    uint64_t framesMissed() const { return missed; }

private:
    bool hasEnd() const;
    double doneSoFar() const;
    void take(const wire::MonitorEvent& event);

    FilterSet filters;
    MonitorReader monitor;
    capture::CaptureFile file;
    const End end;
    uint64_t missed = 0;
    uint64_t missedBefore = 0; ///< since the last frame
};

} // namespace tool
