#pragma once

#include <logger/TraceStream.h>

#include <memory>
#include <string>
#include <vector>

namespace vlogger {

/// The side of a device that is read: one stream per opener.
class TraceDevice
{
public:
    TraceDevice(EpollLoop& eventLoop, std::string devicePath, const Options& options, Statistics& counters)
        : loop(eventLoop), path(std::move(devicePath)), settings(options), statistics(counters)
    {
    }

    /// Opens a stream over the given end of a socket pair.
    TraceStream& open(wire::FileDescriptor connection);

    /// Ends every stream; what waits is lost.
    void vanish();

    /// Counts a frame that one of its channels has received.
    /// @return false if nobody has the device open to read it
    bool receives()
    {
        ++received;
        unread += streams.empty() ? 1U : 0U;
        return !streams.empty();
    }

    uint64_t framesReceived() const { return received; }
    uint64_t framesUnread() const { return unread; }
    const std::vector<std::unique_ptr<TraceStream>>& openStreams() const { return streams; }

private:
    EpollLoop& loop;
    const std::string path;
    const Options& settings;
    Statistics& statistics;
    std::vector<std::unique_ptr<TraceStream>> streams;
    uint64_t received = 0;
    uint64_t unread = 0;
};

} // namespace vlogger
