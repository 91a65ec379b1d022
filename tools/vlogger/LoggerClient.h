#pragma once

#include <wire/FileDescriptor.h>
#include <wire/MonitorProtocol.h>
#include <wire/Protocol.h>
#include <wire/StageStatistics.h>
#include <wire/TraceRecord.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace tool {

/// The virtual logger that the tools talk to: the path that is given, else VLOGGER, else the user's default socket.
class LoggerClient
{
public:
    /// @param path  from the command line; empty: none was given
    explicit LoggerClient(const std::string& path);

    const std::string& socketPath() const { return socket; }

    // Each throws std::system_error if the virtual logger cannot be reached or refuses.

    /// System time minus device time in microseconds; 0 if the device clock has lost it.
    uint64_t offsetUs() const;
    wire::StageReport statistics() const;
    /// The stream of a monitor.
    wire::FileDescriptor openMonitor(const wire::ChannelSet& channels) const;
    wire::FileDescriptor openInjection() const;
    /// A transmit device, as an application opens it.
    wire::FileDescriptor openDevice(const std::string& path) const;
    wire::Board board() const;
    /// @throws WrongUsage if its board lacks one of these channels: nothing would ever be heard there
    void requireChannels(const wire::ChannelSet& channels) const;

private:
    struct Granted;
    Granted ask(wire::Kind kind, const std::string& text, const char* what) const;

    std::string socket;
};

} // namespace tool
