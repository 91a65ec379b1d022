#pragma once

#include <logger/node/Node.h>

#include <algorithm>

namespace vlogger {

/// A node that sends one frame again and again, on a schedule that does not drift. The first one comes a period
/// after the start.
class CyclicNode : public Node
{
public:
    /// @param record  its channel is the node's
    /// @param interval  above zero
    CyclicNode(const wire::CanRecord& record, Clock::Duration interval) : frame(record), period(interval) {}

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
