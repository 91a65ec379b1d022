#pragma once

#include <logger/Clock.h>
#include <logger/node/IsoTpPdu.h>
#include <logger/node/IsoTpReceiver.h>

#include <deque>
#include <optional>

namespace vlogger {

/// Sends the answers of a node one after the other, as its peer's flow control allows.
///
/// An answer whose peer says nothing for a second, or cannot take it, is given up. At most 64 answers wait; a peer
/// that asks for more without taking them gets no answer to the rest.
class IsoTpSender
{
public:
    using Put = IsoTpReceiver::Put;

    /// @param nodeOptions  outlive the sender
    explicit IsoTpSender(const IsoTpNodeOptions& nodeOptions) : options(nodeOptions) {}

    /// Forgets what was to be sent.
    void reset();

    /// Sends a message of 1 to 4095 bytes, not before `when`.
    void send(Bytes message, Clock::Instant when);

    /// Takes the peer's flow control; ignored unless it is waited for.
    void receive(const IsoTpPdu& flowControl, Clock::Instant now);

    /// When the next frame is to be sent, or the peer has been silent for too long.
    std::optional<Clock::Instant> due() const;

    /// Sends the frame that is due, or gives the message up.
    void proceed(Clock::Instant now, const Put& put);

private:
    enum class Phase : uint8_t
    {
        BEGIN,
        WAIT_FOR_FLOW_CONTROL,
        CONSECUTIVE,
    };
    struct Job
    {
        Bytes message;
        Clock::Instant due;
        Phase phase = Phase::BEGIN;
        size_t sentBytes = 0;
        uint32_t consecutiveFrames = 0;
        uint8_t framesInBlock = 0;
        uint8_t blockSize = 0;
        std::chrono::microseconds separationTime{0};
    };

    void begin(Job& job, Clock::Instant now, const Put& put);
    void putConsecutive(Job& job, Clock::Instant now, const Put& put);

    const IsoTpNodeOptions& options;
    std::deque<Job> jobs; ///< the first one is being sent
};

} // namespace vlogger
