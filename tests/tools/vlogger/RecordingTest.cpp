#include <vlogger/Recording.h>

#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <span>
#include <thread>

using namespace std::chrono_literals;

namespace {

/// A recording of a stream whose other end is in the test's hands.
class RecordingTest : public ::testing::Test
{
protected:
    RecordingTest()
    {
        int ends[2] = {};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        logger.reset(ends[0]);
        stream.reset(ends[1]);
    }

    tool::Recording recordingTo(tool::Recording::End end)
    {
        return {tool::FilterSet({}), tool::MonitorReader(std::move(stream), 0),
                capture::CaptureFile(path, capture::Format::CANDUMP, ""), std::move(end)};
    }

    /// A second that is over as soon as the file has something in it.
    tool::TimeLimit untilTheFirstFrame()
    {
        return tool::TimeLimit(1, [this] {
            std::error_code missing;
            const auto size = std::filesystem::file_size(path, missing);
            return tool::TimeLimit::Clock::time_point(!missing && size != 0 ? 1s : 0s);
        });
    }

    void loggerSends(uint8_t number)
    {
        wire::CanRecord frame{.id = 0x123, .lengthBytes = 1};
        frame.payload[0] = number;
        std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
        loggerWrites(std::span(bytes).first(wire::encodeMonitorFrame(frame, false, bytes)));
    }

    void loggerWrites(std::span<const uint8_t> bytes)
    {
        EXPECT_EQ(::send(logger.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    /// Waits until the recording asks for what waits and the end.
    void loggerAwaitsTheEnd()
    {
        uint8_t byte = 0;
        EXPECT_EQ(::recv(logger.get(), &byte, sizeof byte, 0), 0);
    }

    std::string recorded() const { return directory.read("out.log"); }

    TemporaryDirectory directory;
    const std::string path = directory.path("out.log");
    wire::FileDescriptor logger;
    wire::FileDescriptor stream;
    tool::StopSignal stop;
};

TEST_F(RecordingTest, EndOfTheTimeTakesWhatStillWaits)
{
    auto sut = recordingTo({.time = untilTheFirstFrame()});
    std::thread virtualLogger([this] {
        loggerSends(1);
        loggerAwaitsTheEnd();
        loggerSends(2);
        loggerSends(3);
        logger.reset();
    });
    EXPECT_TRUE(sut.run(stop));
    virtualLogger.join();
    EXPECT_EQ(recorded(), "(0.000000) can0 123#01\n(0.000000) can0 123#02\n(0.000000) can0 123#03\n");
    EXPECT_EQ(sut.framesWritten(), 3U);
}

TEST_F(RecordingTest, LossThatWaitsAtTheEndOfTheTimeIsCounted)
{
    auto sut = recordingTo({.time = untilTheFirstFrame()});
    std::thread virtualLogger([this] {
        loggerSends(1);
        loggerAwaitsTheEnd();
        loggerWrites(wire::encodeMonitorDropped(7));
        logger.reset();
    });
    EXPECT_TRUE(sut.run(stop));
    virtualLogger.join();
    EXPECT_EQ(sut.framesMissed(), 7U);
}

TEST_F(RecordingTest, NumberOfFramesIsTheEndHoweverManyWait)
{
    for (const uint8_t number : std::to_array<uint8_t>({1, 2, 3})) {
        loggerSends(number);
    }
    auto sut = recordingTo({.frames = 2});
    EXPECT_TRUE(sut.run(stop));
    EXPECT_EQ(recorded(), "(0.000000) can0 123#01\n(0.000000) can0 123#02\n");
}

TEST_F(RecordingTest, VirtualLoggerThatGoesIsTold)
{
    loggerSends(1);
    logger.reset();
    auto sut = recordingTo({});
    EXPECT_FALSE(sut.run(stop));
    EXPECT_EQ(recorded(), "(0.000000) can0 123#01\n");
}

TEST_F(RecordingTest, SignalTakesWhatStillWaits)
{
    auto sut = recordingTo({});
    ASSERT_EQ(::kill(::getpid(), SIGINT), 0);
    std::thread virtualLogger([this] {
        loggerAwaitsTheEnd();
        loggerSends(1);
        logger.reset();
    });
    EXPECT_TRUE(sut.run(stop));
    virtualLogger.join();
    EXPECT_EQ(recorded(), "(0.000000) can0 123#01\n");
}

} // namespace
