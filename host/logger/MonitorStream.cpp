#include <logger/MonitorStream.h>

#include <logger/Diagnostics.h>

#include <array>
#include <utility>

namespace vlogger {

MonitorStream::MonitorStream(EpollLoop& eventLoop, wire::FileDescriptor connection, const wire::ChannelSet& watched,
                             const Options& options, Statistics& counters, OnEnded onEnded)
    : TraceStream(eventLoop, std::move(connection), "the monitor", options, counters, std::move(onEnded)),
      channels(watched)
{
    letReaderFinish();
}

void MonitorStream::report(const wire::CanRecord& frame, bool isSent)
{
    if (takesNoMore()) {
        return;
    }
    ++frames;
    if (mustDrop()) {
        ++missed;
        ++missedInAll;
        return;
    }
    reportMissed(); // ahead of what comes behind the gap
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
    appendBeyondLimit(std::span(bytes).first(wire::encodeMonitorFrame(frame, isSent, bytes)));
}

void MonitorStream::onRoom()
{
    reportMissed(); // there may never be a next frame
}

void MonitorStream::reportMissed()
{
    if (missed != 0) {
        appendBeyondLimit(wire::encodeMonitorDropped(std::exchange(missed, 0)));
    }
}

wire::StageCounts MonitorStream::counts() const
{
    const uint64_t waiting = recordsWaiting();
    return {.stage = wire::Stage::MONITOR,
            .name = "monitor",
            .in = frames,
            .out = frames - missedInAll - std::min(waiting, frames - missedInAll),
            .waiting = waiting,
            .dropped = missedInAll};
}

void MonitorStream::onStalled()
{
    diagnostics::warn("a monitor has taken nothing for its stall limit: it misses what crosses the buses until it "
                      "reads again, and is told how much that was");
}

} // namespace vlogger
