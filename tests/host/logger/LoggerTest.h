#pragma once

#include <logger/SimulatedClock.h>
#include <logger/VirtualLogger.h>
#include <support/LoggerClient.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

/// A virtual logger in time that stands still unless the test moves it, and its clients.
class LoggerTest : public testing::Test
{
protected:
    static constexpr std::string_view MAIN = vlogger::board::MAIN_DEVICE;
    static constexpr std::string_view EXTENSION = vlogger::board::EXTENSION_DEVICE;

    /// Builds the logger; the clock is the fixture's unless the options name one.
    void start(vlogger::Options options = {})
    {
        if (!options.clock) {
            options.clock = clock;
        }
        sut = std::make_unique<vlogger::VirtualLogger>(std::move(options));
    }

    loggerclient::Writer writer(std::string_view device = MAIN) { return {sut->connect(), device}; }
    loggerclient::Reader reader(std::string_view device = MAIN) { return {sut->connect(), device}; }
    loggerclient::Answer ask(wire::Kind kind, std::string_view text = {})
    {
        const wire::FileDescriptor connection(sut->connect());
        return loggerclient::ask(connection.get(), kind, text);
    }

    /// Waits until the logger has taken this many frames.
    bool waitForFramesIn(uint64_t count)
    {
        return waitUntil([&] { return sut->statistics().framesIn >= count; });
    }

    /// Asks again and again, which each time takes the logger through a round of its loop.
    template <typename Predicate>
    static bool waitUntil(Predicate predicate)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(loggerclient::LIMIT_MS);
        while (!predicate()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
        }
        return true;
    }

    /// Writes numbered frames on channel 0 until the logger takes none any more.
    /// @return number of frames written so far, `alreadyWritten` included
    uint32_t writeUntilHeld(loggerclient::Writer& from, uint32_t alreadyWritten = 0)
    {
        uint32_t written = alreadyWritten;
        uint64_t taken = 0;
        // A round that begins after the last write serves it; two without a change mean that the writer is held.
        for (int roundsWithoutChange = 0; roundsWithoutChange < 3;) {
            while (from.tryWrite(loggerclient::frame(0, written & 0x7FF, numbered(written)))) {
                ++written;
                roundsWithoutChange = 0;
            }
            const uint64_t now = sut->statistics().framesIn;
            roundsWithoutChange = now == taken ? roundsWithoutChange + 1 : 0;
            taken = now;
        }
        return written;
    }

    static std::vector<uint8_t> numbered(uint32_t number)
    {
        return {static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    }
    static uint32_t numberOf(const wire::CanRecord& record)
    {
        return static_cast<uint32_t>(record.payload[0]) << 24 | static_cast<uint32_t>(record.payload[1]) << 16 |
               static_cast<uint32_t>(record.payload[2]) << 8 | record.payload[3];
    }

    const std::shared_ptr<vlogger::SimulatedClock> clock = std::make_shared<vlogger::SimulatedClock>();
    std::unique_ptr<vlogger::VirtualLogger> sut;
};
