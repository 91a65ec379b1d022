#pragma once

#include <logger/Bus.h>
#include <logger/DeviceClock.h>
#include <logger/DeviceTable.h>
#include <logger/MonitorHub.h>
#include <logger/ProcessBus.h>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>

namespace vlogger {

/// Knows the wiring: takes frames from whoever sends and puts them on the bus of their channel.
class Router
{
public:
    /// @throws std::invalid_argument if a channel is on two buses
    Router(const Options& options, DeviceTable& devices, const DeviceClock& deviceClock, MonitorHub& watchers,
           ProcessBus& registeredProcesses, Statistics& counters);

    /// Connects a node with the bus of its channel.
    void attach(NodeMember& node);

    /// Puts a frame on the bus of its channel.
    ///
    /// @param origin  channel that sends; nothing: a node on that bus
    /// @return false if the frame has to wait: the sender keeps it and offers it again when it is resumed
    bool route(const wire::CanRecord& frame, std::optional<uint8_t> origin, Sender& sender);

    const std::deque<Bus>& allBuses() const { return buses; }

private:
    static constexpr size_t CHANNELS = 256;

    const DeviceClock& clock;
    MonitorHub& monitors;
    ProcessBus& processBus;
    Statistics& statistics;
    std::deque<Bus> buses; ///< a deque, for the pointers' sake
    std::array<Bus*, CHANNELS> busOf{};
};

} // namespace vlogger
