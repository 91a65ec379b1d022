#pragma once

#include <logger/Sender.h>
#include <logger/TraceDevice.h>
#include <wire/TraceRecord.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace vlogger {

class NodeMember;

/// One wire: what a member sends reaches every other member, in order.
class Bus
{
public:
    /// Connects a channel of the logger.
    /// @param device  carries what the channel receives; null: the board cannot read this channel
    void attach(uint8_t channel, TraceDevice* device) { ports.push_back({.channel = channel, .device = device}); }

    /// Connects a node. It stays where it is as long as the bus does.
    void attach(NodeMember& node) { nodes.push_back(&node); }

    /// Puts a frame on the wire.
    ///
    /// @param frame   as received, with the time stamp of the wire; the channel is filled in per receiver
    /// @param origin  channel that sends, which does not hear itself; nothing: a node that is no channel
    /// @param sender  if it is a node of this bus, it does not hear itself either
    /// @return false if a reader's queue holds the sender back: nobody got the frame, and the sender is resumed
    bool transmit(const wire::CanRecord& frame, std::optional<uint8_t> origin, Sender& sender);

    struct Port
    {
        uint8_t channel;
        TraceDevice* device;
        uint64_t sent = 0;
        uint64_t received = 0;
    };
    const std::vector<Port>& members() const { return ports; }

    uint64_t framesIn() const { return taken; }
    uint64_t framesOut() const { return delivered; }

private:
    bool mayTransmit(std::optional<uint8_t> origin, Sender& sender);

    std::vector<Port> ports;
    std::vector<NodeMember*> nodes;
    uint64_t taken = 0;
    uint64_t delivered = 0; ///< once per member that received it
};

} // namespace vlogger
