#pragma once

#include "FilterSet.h"
#include "LoggerClient.h"
#include "StopSignal.h"

#include <wire/MonitorProtocol.h>

#include <cstdint>
#include <vector>

namespace tool {

/// Reads a monitor until it ends, the user stops it or the time is over.
class MonitorReader
{
public:
    /// Watches what the filters want to see, and maybe more.
    /// @throws WrongUsage if a filter names a channel that the logger's board lacks
    MonitorReader(const LoggerClient& client, const FilterSet& filters);
    /// @param monitorStream  as LoggerClient::openMonitor() returns it
    /// @param timeOffsetUs   system time minus device time
    MonitorReader(wire::FileDescriptor monitorStream, uint64_t timeOffsetUs);

    enum class Result
    {
        EVENT,
        QUIET,   ///< all that one read has brought is taken, or the limit is over: a good moment to write it out
        ENDED,   ///< the virtual logger has gone
        STOPPED, ///< the user or finish() has stopped it, and everything that crossed the buses until then is taken
    };

    /// Takes the next event, whose time is then that of the system.
    /// @param limitMs  how long to wait before QUIET if nothing is there; -1: for ever. No limit once it is
    ///                 stopped: what waits comes at once, and a second signal ends the program.
    Result next(wire::MonitorEvent& event, StopSignal& stop, int limitMs);

    /// Stops it as the user would: what follows is what has crossed the buses until now, and then STOPPED. Once is
    /// enough; more often does no harm.
    void finish();

private:
    wire::FileDescriptor stream;
    uint64_t offsetUs;
    wire::MonitorDecoder decoder;
    std::vector<uint8_t> buffer;
    bool hasBrought = false;  ///< events since the last QUIET
    bool isFinishing = false; ///< the virtual logger is asked for what waits and the end
};

} // namespace tool
