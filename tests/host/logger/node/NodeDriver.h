#pragma once

#include <logger/node/Node.h>
#include <support/LoggerClient.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

/// A frame that a node has sent, and when.
struct SentFrame
{
    std::chrono::microseconds at{0};
    std::vector<uint8_t> data;
    uint32_t id = 0;
    uint8_t type = 0;
};

/// The bus and the clock of one node, both in the hands of a test.
class NodeDriver
{
public:
    explicit NodeDriver(vlogger::Node& driven) : node(driven) { node.start(now); }

    /// Another member sends a frame; what the node does about it at once is done.
    void deliver(const wire::CanRecord& frame)
    {
        wire::CanRecord received = frame;
        received.frameKind = 0; // as it leaves the bus
        node.receive(received, now);
        settle();
    }

    /// Lets time pass, with everything that falls due on the way.
    void advance(std::chrono::microseconds duration)
    {
        const vlogger::Clock::Instant end = now + duration;
        while (node.due() && *node.due() <= end && !isHeld) {
            now = std::max(now, *node.due());
            settle();
        }
        now = end;
    }

    /// From now on the bus takes nothing, or takes it again.
    void hold(bool held)
    {
        isHeld = held;
        settle();
    }

    /// The frames since the last call.
    std::vector<SentFrame> takeSent() { return std::exchange(sent, {}); }

    /// The data of the frames since the last call.
    std::vector<std::vector<uint8_t>> takeData()
    {
        std::vector<std::vector<uint8_t>> data;
        for (SentFrame& frame : takeSent()) {
            data.push_back(std::move(frame.data));
        }
        return data;
    }

    bool isIdle() const { return !node.due(); }

private:
    void settle()
    {
        for (int step = 0; node.due() && *node.due() <= now; ++step) {
            ASSERT_LT(step, 100'000) << "the node never comes to rest";
            node.proceed(now, [this](const wire::CanRecord& frame) {
                if (!isHeld) {
                    const auto data = frame.data();
                    sent.push_back({.at = std::chrono::duration_cast<std::chrono::microseconds>(now),
                                    .data = {data.begin(), data.end()},
                                    .id = frame.id,
                                    .type = frame.type});
                }
                return !isHeld;
            });
            if (isHeld) {
                return;
            }
        }
    }

    vlogger::Node& node;
    vlogger::Clock::Instant now{0};
    bool isHeld = false;
    std::vector<SentFrame> sent;
};
