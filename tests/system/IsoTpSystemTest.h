#pragma once

#include "SystemTest.h"

#include <CanIsoTpHandler.h>

#include <logger/node/IsoTpNode.h>
#include <support/CapturedOutput.h>
#include <support/RecordingIsoTpCallback.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <numeric>
#include <vector>

using Bytes = std::vector<uint8_t>;

constexpr uint32_t REQUEST_ID = 0x7E0;
constexpr uint32_t ANSWER_ID = 0x7E8;

/// 1, 2, 3, ... 255, 0, 1, ...
inline Bytes counting(size_t length)
{
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

/// An application's handler with its callback, as a diagnostic tester has them. Its worker runs from start() on.
class TestHandler
{
public:
    explicit TestHandler(uint8_t channel, uint32_t rxId = ANSWER_ID, uint32_t txId = REQUEST_ID)
        : handler("TraceLogger", "Diagnostic", channel, rxId, CAN_STANDARD, txId, CAN_STANDARD)
    {
        handler.setCallback(callback);
    }
    ~TestHandler() { stop(); }
    TestHandler(const TestHandler&) = delete;
    TestHandler& operator=(const TestHandler&) = delete;

    void start()
    {
        handler.start();
        running = true;
    }
    void stop()
    {
        if (running) {
            running = false;
            handler.stop();
        }
    }

    bool send(const Bytes& message) { return handler.sendTxID(message.data(), message.size()); }

    /// Waits for the n-th message, counted from 1.
    bool awaitMessage(const Bytes& message, size_t number = 1) const
    {
        return awaitMessages(number) && messages()[number - 1] == message;
    }
    bool awaitMessages(size_t count) const
    {
        return callback.events.waitUntil(
            [&](const std::vector<IsoTpEvent>& all) { return messagesAmong(all).size() >= count; });
    }
    std::vector<Bytes> messages() const { return messagesAmong(callback.events.all()); }

    /// Waits until a transfer has been aborted.
    bool awaitError(int code, const std::string& text) const { return awaitEvent(errorEvent(code, text)); }
    bool awaitEvent(const IsoTpEvent& event, size_t times = 1) const
    {
        return callback.events.waitUntil([&](const std::vector<IsoTpEvent>& all) {
            return static_cast<size_t>(std::count(all.begin(), all.end(), event)) >= times;
        });
    }

    RecordingIsoTpCallback callback;
    CanIsoTpHandler handler;

private:
    static std::vector<Bytes> messagesAmong(const std::vector<IsoTpEvent>& events)
    {
        std::vector<Bytes> messages;
        for (const IsoTpEvent& event : events) {
            if (event.text.empty()) {
                messages.push_back(event.message);
            }
        }
        return messages;
    }

    bool running = false;
};

/// What a frame on the bus was, and when it was there by the clock of the virtual logger.
struct FrameOnTheBus
{
    uint32_t id = 0;
    Bytes data;
    vlogger::Clock::Instant at{0};
};

/// A node that writes down what it hears, and sends nothing.
class ListeningNode : public vlogger::Node
{
public:
    uint8_t channel() const override { return 1; }
    void start(vlogger::Clock::Instant) override {}
    void receive(const wire::CanRecord& frame, vlogger::Clock::Instant now) override
    {
        const auto data = frame.data();
        frames.add({.id = frame.id, .data = {data.begin(), data.end()}, .at = now});
    }
    std::optional<vlogger::Clock::Instant> due() const override { return std::nullopt; }
    void proceed(vlogger::Clock::Instant, const Transmit&) override {}

    Recorder<FrameOnTheBus> frames;
};

/// Handlers of this process, real process bus, and a virtual logger with nodes.
class IsoTpSystemTest : public SystemTest
{
protected:
    /// A node on the bus of channel 1 that sends back what it gets.
    static vlogger::IsoTpNodeOptions echo()
    {
        vlogger::IsoTpNodeOptions options;
        options.answers = {{.request = {}, .mask = {}, .response = {}, .echo = true}};
        return options;
    }

    void startWith(std::vector<std::shared_ptr<vlogger::Node>> nodes)
    {
        vlogger::Options options = optionsFor(vlogger::board::PLAIN);
        options.nodes = std::move(nodes);
        startLogger(options);
    }
    void startWith(const vlogger::IsoTpNodeOptions& node)
    {
        startWith({std::make_shared<vlogger::IsoTpNode>(node)});
    }
};
