#pragma once

#include <support/RecordingIsoTpCallback.h>

#include <CanIsoTpHandler.h>

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <span>
#include <vector>

/// What a CanIsoTpHandler has to do, written from the rules of the protocol and the handler's limits alone, without
/// threads, locks or a pipe. What the worker does waits until the test says that it looks at its queue.
class IsoTpModel
{
public:
    using Bytes = std::vector<uint8_t>;

    enum class State
    {
        IDLE,
        RECEIVING,
        WAITING_FOR_FLOW_CONTROL,
        SENDING, ///< the peer has granted frames, the worker has yet to send them
    };

    struct Settings
    {
        bool extended = false;
        bool minimalDlc = false;
        uint8_t address = 0;
    };

    explicit IsoTpModel(Settings theSettings) : settings(theSettings) {}

    void send(const Bytes& payload);
    void receive(const Bytes& frame);
    void secondPasses();

    /// The worker carries out one command to look at its queue, which must be there.
    void workerLooks();
    /// The worker carries out every such command, and those that follow.
    void workerCatchesUp();

    State state = State::IDLE;
    std::vector<IsoTpEvent> events; ///< what is reported
    std::vector<Bytes> frames;      ///< what is sent
    size_t queued() const { return queue.size(); }
    size_t looks = 0; ///< commands to look at the queue that the worker has not carried out

    /// What a handler in a state expects.
    static CanIsoTpHandler::expFrameType_t expectationIn(State state);

private:
    size_t control() const { return settings.extended ? 1 : 0; }
    Bytes built(std::initializer_list<uint8_t> controlBytes, std::span<const uint8_t> payload,
                bool alwaysFull) const;
    std::vector<Bytes> segmented(const Bytes& payload) const;
    void sendNext();
    void sendBlock();
    void completeMessage();
    void abort(int code, const char* text);
    void unexpected() { abort(1, "type of received frame != expected frame type"); }
    void wrongDlc() { abort(5, "DLC of received message is wrong"); }
    void invalidFormat() { abort(4, "frame with invalid format was processed"); }

    void receiveSingle(const Bytes& data, size_t dlc);
    void receiveFirst(const Bytes& data);
    void receiveConsecutive(const Bytes& data, size_t dlc);
    void receiveFlowControl(const Bytes& data, size_t dlc);

    const Settings settings;
    std::deque<std::vector<Bytes>> queue;
    size_t next = 0; ///< first frame of the message at the head that the next block may send
    uint8_t blockSize = 0;
    Bytes received;
    size_t announced = 0;
    uint8_t sequence = 0;
};
