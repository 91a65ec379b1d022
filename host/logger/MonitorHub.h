#pragma once

#include <logger/Bus.h>
#include <logger/MonitorStream.h>

#include <memory>
#include <optional>
#include <vector>

namespace vlogger {

/// Everybody who watches the buses.
class MonitorHub
{
public:
    MonitorHub(EpollLoop& eventLoop, const Options& options) : loop(eventLoop), settings(options) {}

    /// Opens a stream over the given end of a socket pair.
    MonitorStream& open(wire::FileDescriptor connection, const wire::ChannelSet& channels);

    /// Whether a frame may cross its bus now; if not, the sender is resumed once it may.
    bool mayReport(Sender& sender);

    /// Tells every monitor that a frame has crossed `bus`.
    /// @param origin  channel that sent it; nothing: a node that is no channel
    void report(const wire::CanRecord& frame, std::optional<uint8_t> origin, const Bus& bus);

    const std::vector<std::unique_ptr<MonitorStream>>& openStreams() const { return streams; }

private:
    EpollLoop& loop;
    const Options& settings;
    Statistics statistics; ///< of monitors, which are no readers of a device
    std::vector<std::unique_ptr<MonitorStream>> streams;
};

} // namespace vlogger
