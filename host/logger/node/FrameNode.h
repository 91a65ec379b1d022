#pragma once

#include <logger/node/Answer.h>
#include <logger/node/Node.h>

#include <chrono>
#include <deque>

namespace vlogger {

/// A node that answers single frames with single frames.
struct FrameNodeOptions
{
    uint8_t channel = 1; ///< it sits on the bus of this channel
    uint32_t requestId = 0x7E0;
    uint32_t responseId = 0x7E8;
    bool extended = false; ///< both identifiers have 29 bits
    std::chrono::milliseconds delay{0};
    std::vector<Answer> answers = {};
};

/// Answers classic frames of one identifier from a table. At most 64 answers wait for their time; what comes beyond
/// that is not answered.
class FrameNode : public Node
{
public:
    /// @throws std::invalid_argument for a response of no or more than 8 bytes, or a delay below 0
    explicit FrameNode(FrameNodeOptions nodeOptions);

    uint8_t channel() const override { return options.channel; }
    void start(Clock::Instant now) override;
    void receive(const wire::CanRecord& frame, Clock::Instant now) override;
    std::optional<Clock::Instant> due() const override;
    void proceed(Clock::Instant now, const Transmit& transmit) override;

private:
    struct Waiting
    {
        Clock::Instant due;
        wire::CanRecord frame;
    };

    const FrameNodeOptions options;
    std::deque<Waiting> waiting;
};

} // namespace vlogger
