#pragma once

#include <logger/node/IsoTpReceiver.h>
#include <logger/node/IsoTpSender.h>
#include <logger/node/Node.h>

namespace vlogger {

/// A node that takes requests by ISO 15765-2 and answers them from a table.
///
/// Receiving and sending do not disturb each other: a request that arrives while an answer is being sent is
/// answered after it. What no answer fits is taken and not answered.
class IsoTpNode : public Node
{
public:
    /// @throws std::invalid_argument for a response of no or more than 4095 bytes, or a time below 0
    explicit IsoTpNode(IsoTpNodeOptions nodeOptions);
    IsoTpNode(const IsoTpNode&) = delete; // its parts refer to its options
    IsoTpNode& operator=(const IsoTpNode&) = delete;

    uint8_t channel() const override { return options.channel; }
    void start(Clock::Instant now) override;
    void receive(const wire::CanRecord& frame, Clock::Instant now) override;
    std::optional<Clock::Instant> due() const override;
    void proceed(Clock::Instant now, const Transmit& transmit) override;

private:
    const IsoTpNodeOptions options;
    IsoTpReceiver receiver;
    IsoTpSender sender;
};

} // namespace vlogger
