#pragma once

#include <logger/Clock.h>
#include <wire/TraceRecord.h>

#include <cstdint>
#include <functional>
#include <optional>

namespace vlogger {

/// A simulated control unit on a bus: hears what the other members send, and sends by itself when its time has
/// come.
///
/// It has no thread and no clock: time is told with every call, so that a test owns it. The virtual logger calls
/// start() first, receive() for every frame of another member, and proceed() once due() has come.
///
/// Threads: all operations are called on the loop's thread of one virtual logger. A node belongs to one at a time.
class Node
{
public:
    /// Puts a frame on the node's bus; time stamp and channel are filled in.
    /// @return false if a full queue holds the frame back: nobody got it, and proceed() is called again once it
    ///         fits
    using Transmit = std::function<bool(const wire::CanRecord& frame)>;

    virtual ~Node() = default;

    /// The channel on whose bus the node sits. Constant.
    virtual uint8_t channel() const = 0;

    /// Begins anew, whatever happened before.
    virtual void start(Clock::Instant now) = 0;

    /// A frame of another member has crossed the bus.
    virtual void receive(const wire::CanRecord& frame, Clock::Instant now) = 0;

    /// When proceed() is wanted; nothing: not before a frame has arrived.
    virtual std::optional<Clock::Instant> due() const = 0;

    /// Does the one thing that is due: sends at most one frame, or gives something up. It is called again at once
    /// while due() is not in the future. A frame that is held back changes nothing.
    virtual void proceed(Clock::Instant now, const Transmit& transmit) = 0;
};

} // namespace vlogger
