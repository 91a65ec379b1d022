#pragma once

#include <logger/node/Node.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace vlogger {

/// A node that sends one frame again and again, on a schedule that does not drift. The first one comes a period
/// after the start.
class CyclicNode : public Node
{
public:
    /// @param record  its channel is the node's
    /// @param interval  above zero
    /// @throws std::invalid_argument for another interval, or more than 64 bytes of payload
    CyclicNode(const wire::CanRecord& record, Clock::Duration interval) : frame(record), period(interval)
    {
        if (interval <= Clock::Duration::zero()) {
            throw std::invalid_argument("a cyclic frame needs a period above 0");
        }
        if (record.lengthBytes > wire::CAN_PAYLOAD_MAX_BYTES) {
            throw std::invalid_argument("a frame has at most 64 bytes, not " + std::to_string(record.lengthBytes));
        }
    }

    uint8_t channel() const override { return frame.channel; }
    void start(Clock::Instant now) override { next = now + period; }
    void receive(const wire::CanRecord&, Clock::Instant) override {}
    std::optional<Clock::Instant> due() const override { return next; }
    void proceed(Clock::Instant now, const Transmit& transmit) override
    {
        if (transmit(frame)) {
            // Frames that a busy bus has delayed beyond their period are not made up for.
            next = std::max(next + period, now);
        }
    }

private:
    const wire::CanRecord frame;
    const Clock::Duration period;
    Clock::Instant next{0};
};

} // namespace vlogger
