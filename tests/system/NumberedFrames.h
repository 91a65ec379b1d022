#pragma once

#include <CanInterface.h>

#include <support/FrameCallback.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

/// The frames of one channel, numbered through: four kinds in turn, standard, extended, FD standard, FD extended,
/// each with an interface of its own. The number is in the first payload bytes, the rest follows from it.
class NumberedSender
{
public:
    explicit NumberedSender(uint8_t sentChannel) : channel(sentChannel) {}

    void configure();

    /// What a receiver of all four kinds configures.
    static CanInterface::Configuration receiverConfiguration(uint8_t channel);

    /// Sends the frame with the next number.
    /// @return result of the interface
    int sendNext();

private:
    const uint8_t channel;
    std::array<CanInterface, 4> interfaces;
    uint32_t number = 0;
};

/// Checks numbered frames as they arrive: every number, in order, on the right channel, with the identifier, type
/// and payload that belong to it, and time stamps that never go back. Keeps no frame.
class NumberedReceiver : public InterfaceBaseCb
{
public:
    explicit NumberedReceiver(uint8_t receivedChannel);

    void configure() { can.configure(configuration); }

    void onDataReceived(const uint8_t* data, size_t size) override;
    void onInterfaceState(int status) override { states.onInterfaceState(status); }

    /// Waits for the oldest status that was not taken yet and takes it.
    std::optional<int> nextStatus() { return states.nextStatus(); }

    /// Waits until `count` frames have arrived in order or something was wrong.
    /// @return an empty text, or what was wrong
    std::string awaitFrames(uint32_t count, std::chrono::seconds limit);

    uint32_t frameCount() const { return next; }
    uint64_t firstTimestampUs() const { return firstTimestamp; }
    uint64_t lastTimestampUs() const { return lastTimestamp; }

    const CanInterface::Configuration configuration;

private:
    std::string check(const ReceivedFrame& frame) const;

    const uint8_t channel;
    FrameCallback states;
    std::atomic<uint32_t> next{0};
    std::atomic<uint64_t> firstTimestamp{0};
    std::atomic<uint64_t> lastTimestamp{0};
    std::atomic<uint32_t> wanted{UINT32_MAX};
    std::mutex mutex;
    std::condition_variable changed;
    std::string problem;
    CanInterface can; ///< last: it goes first, and with it the calls
};
