#pragma once

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
    MonitorReader(const LoggerClient& client, const wire::ChannelSet& channels);

    enum class Result
    {
        EVENT,
        QUIET, ///< nothing more is there just now: a good moment to write out what has come
        ENDED, ///< the virtual logger has gone
        STOPPED,
    };

    /// Takes the next event, whose time is then that of the system.
    /// @param limitMs  how long to wait before QUIET if nothing is there; -1: for ever
    Result next(wire::MonitorEvent& event, StopSignal& stop, int limitMs);

private:
    wire::FileDescriptor stream;
    uint64_t offsetUs;
    wire::MonitorDecoder decoder;
    std::vector<uint8_t> buffer;
};

} // namespace tool
