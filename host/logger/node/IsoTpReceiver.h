#pragma once

#include <logger/Clock.h>
#include <logger/node/IsoTpPdu.h>

#include <functional>
#include <optional>

namespace vlogger {

/// Puts the requests to a node together and tells their sender when it may go on.
///
/// A sender that is silent for a second, or sends a wrong sequence number, is forgotten. A first or single frame
/// always begins a new message.
class IsoTpReceiver
{
public:
    /// Sends the data of a frame; false: held back.
    using Put = std::function<bool(std::span<const uint8_t> data)>;

    /// @param nodeOptions  outlive the receiver
    explicit IsoTpReceiver(const IsoTpNodeOptions& nodeOptions) : options(nodeOptions) {}

    /// Forgets what has arrived.
    void reset() { state = {}; }

    /// Takes a single, first or consecutive frame.
    /// @return the message if it is whole now
    std::optional<Bytes> receive(const IsoTpPdu& pdu, Clock::Instant now);

    /// When the next flow-control frame is to be sent, or the sender has been silent for too long.
    std::optional<Clock::Instant> due() const { return state.due; }

    /// Sends the flow-control frame that is due, or forgets the sender.
    void proceed(Clock::Instant now, const Put& put);

private:
    enum class Phase : uint8_t
    {
        IDLE,
        FLOW_CONTROL_DUE,
        REFUSAL_DUE, ///< flow control "overflow"
        RECEIVING,
    };

    void begin(const IsoTpPdu& first, Clock::Instant now);
    std::optional<Bytes> append(const IsoTpPdu& consecutive, Clock::Instant now);
    void letWait(Clock::Instant now);
    bool putFlowControl(IsoTpFlow flow, const Put& put) const;

    struct State
    {
        Phase phase = Phase::IDLE;
        std::optional<Clock::Instant> due = std::nullopt;
        Bytes message = {};
        size_t messageBytes = 0;
        uint8_t nextSequenceNumber = 1;
        uint8_t framesInBlock = 0;
        uint8_t waitsLeft = 0;
    };

    const IsoTpNodeOptions& options;
    State state;
};

} // namespace vlogger
