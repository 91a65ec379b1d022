#include "Recording.h"

#include "FrameText.h"
#include "Progress.h"

#include <algorithm>
#include <utility>

namespace tool {

namespace {

/// How often a recording that has nothing to do shows that it is alive.
constexpr int LOOK_MS = 200;

} // namespace

Recording::Recording(FilterSet shownFrames, MonitorReader reader, capture::CaptureFile output, End reachedAt)
    : filters(std::move(shownFrames)), monitor(std::move(reader)), file(std::move(output)),
      end(std::move(reachedAt))
{
}

bool Recording::run(StopSignal& stop)
{
    Progress progress("recording");
    while (framesWritten() < end.frames) {
        if (end.time.isOver()) {
            monitor.finish();
        }
        wire::MonitorEvent event;
        const auto result = monitor.next(event, stop, end.time.remainingMs(LOOK_MS));
        progress.show(framesWritten(), hasEnd() ? doneSoFar() : -1);
        if (result == MonitorReader::Result::EVENT) {
            take(event);
        } else if (result != MonitorReader::Result::QUIET) {
            return result == MonitorReader::Result::STOPPED;
        } else if (end.isReaderGone && end.isReaderGone()) {
            return true;
        }
    }
    return true;
}

bool Recording::hasEnd() const
{
    return end.time.exists() || end.frames != End().frames;
}

/// 0 to 1, by what ends first.
double Recording::doneSoFar() const
{
    return std::max(end.time.passedShare(), static_cast<double>(framesWritten()) / static_cast<double>(end.frames));
}

void Recording::take(const wire::MonitorEvent& event)
{
    if (event.dropped != 0) {
        missed += event.dropped;
        missedBefore += event.dropped;
        return;
    }
    capture::CaptureFrame frame;
    frame.frame = frameOf(event.frame);
    if (!filters.shows(event.frame.channel, frame.frame)) {
        return;
    }
    frame.direction = event.isSent ? capture::Direction::SENT : capture::Direction::RECEIVED;
    frame.droppedBefore = std::exchange(missedBefore, 0);
    file.write(frame);
    // However many one read has brought: what is in the system's hands survives a kill.
    file.flush();
}

} // namespace tool
