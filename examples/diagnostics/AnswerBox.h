#pragma once

#include <BusInterfaceBaseCb.h>

#include <vqtrace/CANTransportTraceMessage.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

/// Keeps what arrives until the tester asks for it.
class AnswerBox : public BusInterfaceBaseCb<CANTransportTraceMessage>
{
public:
    /// On the process-bus thread: the message is gone when this returns, so its payload is copied.
    void onMessage(const CANTransportTraceMessage* msg) override;

    /// Waits for the next answer.
    /// @return nothing if none comes in time
    std::optional<std::vector<uint8_t>> await(std::chrono::seconds patience);

private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<std::vector<uint8_t>> answers;
};
