#include <logger/VirtualLogger.h>
#include <wire/MonitorProtocol.h>
#include <wire/Protocol.h>
#include <wire/StageStatistics.h>

#include <support/LoggerClient.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vlogger {

namespace {

using loggerclient::Reader;
using loggerclient::Writer;

/// A monitor's stream.
class Monitor
{
public:
    explicit Monitor(VirtualLogger& logger, const std::string& channels = "")
    {
        const wire::FileDescriptor connection(logger.connect());
        loggerclient::Answer answer = loggerclient::ask(connection.get(), wire::Kind::MONITOR, channels);
        errorNumber = answer.errorNumber;
        stream = std::move(answer.descriptor);
    }

    int error() const { return errorNumber; }
    void close() { stream.reset(); }
    /// Asks for what waits and the end.
    void finish() { ::shutdown(stream.get(), SHUT_WR); }

    std::optional<wire::MonitorEvent> next()
    {
        wire::MonitorEvent event;
        std::array<uint8_t, 65536> bytes;
        while (!decoder.next(event)) {
            if (loggerclient::waitFor(stream.get(), POLLIN) == 0) {
                return std::nullopt;
            }
            const ssize_t size = ::recv(stream.get(), bytes.data(), bytes.size(), 0);
            if (size <= 0) {
                return std::nullopt;
            }
            decoder.feed(std::span(bytes).first(static_cast<size_t>(size)));
        }
        return event;
    }

    /// "can0 TX 123", "can1 RX 123" or "dropped 7".
    std::string nextText()
    {
        const auto event = next();
        if (!event) {
            return "nothing";
        }
        if (event->dropped != 0) {
            return "dropped " + std::to_string(event->dropped);
        }
        return "can" + std::to_string(event->frame.channel) + (event->isSent ? " TX " : " RX ") +
               std::to_string(event->frame.id);
    }

private:
    wire::FileDescriptor stream;
    wire::MonitorDecoder decoder;
    int errorNumber = 0;
};

/// A tool that sends from outside.
class Injector
{
public:
    explicit Injector(VirtualLogger& logger) : fd(logger.connect())
    {
        errorNumber = loggerclient::ask(fd.get(), wire::Kind::INJECT).errorNumber;
    }

    int error() const { return errorNumber; }
    int get() const { return fd.get(); }

    bool send(const wire::CanRecord& record)
    {
        std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
        return wire::sendPacket(fd.get(), std::span(bytes).first(wire::encode(record, bytes))) == 0;
    }

    /// True once the virtual logger says that everything is delivered.
    bool finish()
    {
        const loggerclient::Answer answer = loggerclient::ask(fd.get(), wire::encodeFinish());
        return !answer.closed && answer.errorNumber == 0;
    }

private:
    wire::FileDescriptor fd;
    int errorNumber = 0;
};

struct Seen
{
    uint64_t frames = 0;
    uint64_t missed = 0;
};

/// Reads up to the first word of a loss.
Seen readUntilLoss(Monitor& monitor)
{
    Seen seen;
    while (seen.missed == 0) {
        const auto event = monitor.next();
        if (!event) {
            ADD_FAILURE() << "the stream ends after " << seen.frames << " frames";
            break;
        }
        seen.missed = event->dropped;
        seen.frames += seen.missed == 0 ? 1U : 0U;
    }
    return seen;
}

wire::StageReport reportOf(VirtualLogger& logger)
{
    const wire::FileDescriptor connection(logger.connect());
    EXPECT_EQ(loggerclient::ask(connection.get(), wire::Kind::STATISTICS).errorNumber, 0);
    std::vector<uint8_t> packet(wire::STAGE_REPORT_MAX_BYTES);
    wire::ReceivedPacket received;
    EXPECT_NE(loggerclient::waitFor(connection.get(), POLLIN), 0);
    EXPECT_EQ(wire::receivePacket(connection.get(), packet, received), 0);
    return wire::decodeStageReport(std::span(packet).first(received.sizeBytes)).value_or(wire::StageReport());
}

} // namespace

TEST(MonitorTest, FrameIsSeenOncePerChannelWithItsDirectionAndTime)
{
    VirtualLogger logger({.buses = {{0, 1, 5}}});
    Monitor sut(logger);
    Writer writer(logger.connect(), board::MAIN_DEVICE);
    ASSERT_EQ(writer.write(loggerclient::frame(1, 0x123, {1, 2, 3})), 0);
    EXPECT_EQ(sut.nextText(), "can1 TX 291");
    EXPECT_EQ(sut.nextText(), "can0 RX 291");
    const auto last = sut.next();
    ASSERT_TRUE(last);
    EXPECT_EQ(last->frame.channel, 5);
    EXPECT_FALSE(last->isSent);
    EXPECT_EQ(last->frame.lengthBytes, 3);
    EXPECT_GT(last->frame.timestampUs, 0U);
}

TEST(MonitorTest, OnlyTheChannelsAskedForAreSeen)
{
    VirtualLogger logger({});
    Monitor sut(logger, "3");
    Injector injector(logger);
    for (const uint8_t channel : {uint8_t{0}, uint8_t{2}, uint8_t{5}, uint8_t{3}}) {
        ASSERT_TRUE(injector.send(loggerclient::frame(channel, 0x100U + channel)));
    }
    ASSERT_TRUE(injector.finish());
    EXPECT_EQ(sut.nextText(), "can3 RX 258");
    EXPECT_EQ(sut.nextText(), "can3 RX 259");
}

TEST(MonitorTest, TextThatIsNoListOfChannelsIsRefused)
{
    VirtualLogger logger({});
    EXPECT_EQ(Monitor(logger, "can0").error(), EINVAL);
}

TEST(MonitorTest, FrameFromOutsideReachesEveryChannelOfItsBus)
{
    VirtualLogger logger({});
    Reader reader(logger.connect(), board::MAIN_DEVICE);
    Injector sut(logger);
    ASSERT_TRUE(sut.send(loggerclient::frame(1, 0x7FF, {9}, 3)));
    const std::vector<wire::CanRecord> records = reader.take(2);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].channel, 0);
    EXPECT_EQ(records[1].channel, 1);
    EXPECT_EQ(records[1].type, 3);
}

TEST(MonitorTest, FinishIsAnsweredAfterTheLastFrameIsDelivered)
{
    VirtualLogger logger({});
    Reader reader(logger.connect(), board::MAIN_DEVICE);
    Injector sut(logger);
    for (uint32_t id = 0; id < 1000; ++id) {
        ASSERT_TRUE(sut.send(loggerclient::frame(0, id)));
    }
    ASSERT_TRUE(sut.finish());
    EXPECT_EQ(logger.statistics().framesQueued, 2000U);
    EXPECT_EQ(reader.take(2000).size(), 2000U);
}

TEST(MonitorTest, ToolThatGoesWithoutFinishLeavesEverythingInOrder)
{
    VirtualLogger logger({});
    Monitor monitor(logger, "0");
    {
        Injector sut(logger);
        ASSERT_TRUE(sut.send(loggerclient::frame(0, 1)));
    }
    EXPECT_EQ(monitor.nextText(), "can0 RX 1");
    Injector next(logger);
    ASSERT_TRUE(next.send(loggerclient::frame(0, 2)));
    EXPECT_TRUE(next.finish());
    EXPECT_EQ(monitor.nextText(), "can0 RX 2");
}

TEST(MonitorTest, GarbageOfAToolIsCountedAndHarmsNobody)
{
    VirtualLogger logger({});
    Injector sut(logger);
    const std::vector<uint8_t> garbage(5, 0xAA);
    ASSERT_EQ(wire::sendPacket(sut.get(), garbage), 0);
    EXPECT_TRUE(sut.finish());
    EXPECT_EQ(logger.statistics().framesMalformed, 1U);
}

TEST(MonitorTest, SlowMonitorHoldsSendersBackAndMissesNothing)
{
    constexpr uint32_t FRAMES = 50000;
    VirtualLogger logger({.streamQueueBytes = 4096});
    Monitor sut(logger, "1");
    std::thread sender([&] {
        Injector injector(logger);
        for (uint32_t i = 0; i < FRAMES; ++i) {
            EXPECT_TRUE(injector.send(loggerclient::frame(0, i, {}, 1)));
        }
        EXPECT_TRUE(injector.finish());
    });
    for (uint32_t i = 0; i < FRAMES; ++i) {
        const auto event = sut.next();
        ASSERT_TRUE(event);
        ASSERT_EQ(event->dropped, 0U);
        ASSERT_EQ(event->frame.id, i);
    }
    sender.join();
}

TEST(MonitorTest, SlowMonitorMissesNothingOfABusOfManyChannels)
{
    constexpr uint32_t FRAMES = 20000;
    VirtualLogger logger({.buses = {{0, 1, 2, 3}}, .streamQueueBytes = 4096});
    Monitor sut(logger);
    std::thread sender([&] {
        auto writer = loggerclient::Writer(logger.connect(), vlogger::board::MAIN_DEVICE);
        for (uint32_t i = 0; i < FRAMES; ++i) {
            EXPECT_EQ(writer.write(loggerclient::frame(2, i, {}, 1)), 0);
        }
    });
    for (uint32_t i = 0; i < FRAMES; ++i) {
        for (const int channel : {2, 0, 1, 3}) {
            const auto event = sut.next();
            ASSERT_TRUE(event);
            ASSERT_EQ(event->dropped, 0U);
            ASSERT_EQ(event->frame.id, i);
            ASSERT_EQ(event->frame.channel, channel);
        }
    }
    sender.join();
}

TEST(MonitorTest, MonitorThatTakesNothingIsToldHowMuchItHasMissed)
{
    constexpr uint32_t FRAMES = 30000;
    VirtualLogger logger({.streamQueueBytes = 4096, .stallLimit = std::chrono::milliseconds(20)});
    Monitor sut(logger, "1");
    Injector injector(logger);
    for (uint32_t i = 0; i < FRAMES; ++i) {
        ASSERT_TRUE(injector.send(loggerclient::frame(0, i, {}, 1)));
    }
    ASSERT_TRUE(injector.finish());
    // No further frame: the reader hears of its loss as soon as there is room for it.
    const Seen seen = readUntilLoss(sut);
    EXPECT_GT(seen.frames, 100U);
    EXPECT_EQ(seen.frames + seen.missed, FRAMES);
}

TEST(MonitorTest, MonitorThatTakesNothingAndFinishesIsToldHowMuchItHasMissed)
{
    constexpr uint32_t FRAMES = 30000;
    VirtualLogger logger({.streamQueueBytes = 4096, .stallLimit = std::chrono::milliseconds(20)});
    Monitor sut(logger, "1");
    Injector injector(logger);
    for (uint32_t i = 0; i < FRAMES; ++i) {
        ASSERT_TRUE(injector.send(loggerclient::frame(0, i, {}, 1)));
    }
    ASSERT_TRUE(injector.finish());
    sut.finish();
    const Seen seen = readUntilLoss(sut);
    EXPECT_EQ(seen.frames + seen.missed, FRAMES);
    EXPECT_EQ(sut.nextText(), "nothing");
}

TEST(MonitorTest, MonitorThatFinishesGetsWhatWaitsAndTheEnd)
{
    constexpr uint32_t FRAMES = 20000;
    VirtualLogger logger({});
    Monitor sut(logger, "1");
    Injector injector(logger);
    for (uint32_t i = 0; i < FRAMES; ++i) {
        ASSERT_TRUE(injector.send(loggerclient::frame(0, i, {}, 1)));
    }
    ASSERT_TRUE(injector.finish());
    ASSERT_GT(reportOf(logger).stages.back().waiting, 0U);
    sut.finish();
    for (uint32_t i = 0; i < FRAMES; ++i) {
        const auto event = sut.next();
        ASSERT_TRUE(event);
        ASSERT_EQ(event->frame.id, i);
    }
    EXPECT_EQ(sut.nextText(), "nothing");
}

TEST(MonitorTest, MonitorThatHasFinishedHoldsNobodyBack)
{
    VirtualLogger logger({.streamQueueBytes = 4096});
    Monitor sut(logger);
    sut.finish();
    Injector injector(logger);
    for (uint32_t i = 0; i < 10000; ++i) {
        ASSERT_TRUE(injector.send(loggerclient::frame(0, i % 0x7FF)));
    }
    EXPECT_TRUE(injector.finish());
}

TEST(MonitorTest, MonitorThatHasGoneHoldsNobodyBack)
{
    VirtualLogger logger({.streamQueueBytes = 4096});
    Injector injector(logger);
    {
        Monitor sut(logger);
        ASSERT_TRUE(injector.send(loggerclient::frame(0, 1)));
        ASSERT_TRUE(sut.next());
    }
    for (uint32_t i = 0; i < 10000; ++i) {
        ASSERT_TRUE(injector.send(loggerclient::frame(0, i % 0x7FF)));
    }
    EXPECT_TRUE(injector.finish());
}

TEST(StageReportTest, EveryStageOfThePathIsCountedInItsOrder)
{
    VirtualLogger logger({.buses = {{0, 1, 2}}});
    Reader first(logger.connect(), board::MAIN_DEVICE);
    Reader second(logger.connect(), board::MAIN_DEVICE);
    Monitor monitor(logger, "0");
    Writer writer(logger.connect(), board::MAIN_DEVICE);
    for (uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(writer.write(loggerclient::frame(0, i)), 0);
    }
    ASSERT_EQ(first.take(20).size(), 20U);
    wire::StageReport report = reportOf(logger);
    EXPECT_GT(report.uptimeUs, 0U);
    using enum wire::Stage;
    // How much of what a reader has not taken is still with the system is the system's own estimate.
    ASSERT_EQ(report.stages.size(), 7U);
    wire::StageCounts& unread = report.stages[5];
    EXPECT_GT(unread.waiting, 0U);
    unread.waiting += std::exchange(unread.out, 0);
    const std::string device(board::MAIN_DEVICE);
    EXPECT_EQ(report.stages, (std::vector<wire::StageCounts>{
                                 {.stage = BUS, .name = "can0 can1 can2", .in = 10, .out = 20},
                                 {.stage = DEVICE_QUEUE, .name = device, .in = 20, .out = 20},
                                 {.stage = STREAM, .name = device + " #1", .in = 20, .out = 20},
                                 {.stage = READER, .name = device + " #1", .in = 20, .out = 20},
                                 {.stage = STREAM, .name = device + " #2", .in = 20, .out = 20},
                                 {.stage = READER, .name = device + " #2", .in = 20, .out = 0, .waiting = 20},
                                 {.stage = MONITOR, .name = "monitor", .in = 10, .out = 10},
                             }));
}

TEST(StageReportTest, ReportOfTheProgramItselfIsTheSame)
{
    VirtualLogger logger({});
    Reader reader(logger.connect(), board::MAIN_DEVICE);
    Writer writer(logger.connect(), board::MAIN_DEVICE);
    ASSERT_EQ(writer.write(loggerclient::frame(0, 1)), 0);
    ASSERT_TRUE(reader.next());
    EXPECT_EQ(logger.stageReport().stages, reportOf(logger).stages);
}

TEST(StageReportTest, FramesForADeviceThatNobodyHasOpenAreDropped)
{
    VirtualLogger logger({});
    Injector injector(logger);
    ASSERT_TRUE(injector.send(loggerclient::frame(0, 1)));
    ASSERT_TRUE(injector.finish());
    EXPECT_EQ(
        reportOf(logger).stages,
        (std::vector<wire::StageCounts>{
            {.stage = wire::Stage::BUS, .name = "can0 can1", .in = 1, .out = 2},
            {.stage = wire::Stage::DEVICE_QUEUE, .name = std::string(board::MAIN_DEVICE), .in = 2, .dropped = 2},
        }));
}

TEST(StageReportTest, StalledReaderShowsWhatWaitsAndWhatIsLost)
{
    constexpr uint32_t FRAMES = 30000;
    VirtualLogger logger({.streamQueueBytes = 4096, .stallLimit = std::chrono::milliseconds(20)});
    Reader reader(logger.connect(), board::MAIN_DEVICE);
    Injector injector(logger);
    for (uint32_t i = 0; i < FRAMES; ++i) {
        ASSERT_TRUE(injector.send(loggerclient::frame(0, i, {}, 1)));
    }
    ASSERT_TRUE(injector.finish());
    const std::vector<wire::StageCounts> stages = reportOf(logger).stages;
    ASSERT_EQ(stages.size(), 4U);
    const wire::StageCounts& stream = stages[2];
    const wire::StageCounts& taker = stages[3];
    EXPECT_EQ(stream.in, 2 * FRAMES);
    EXPECT_GT(stream.dropped, 0U);
    EXPECT_GT(stream.waiting, 100U);
    EXPECT_EQ(stream.in, stream.out + stream.waiting + stream.dropped);
    EXPECT_EQ(stages[1].waiting, stream.waiting);
    EXPECT_EQ(taker.in, stream.out);
    EXPECT_EQ(taker.in, taker.out + taker.waiting);
    EXPECT_GT(taker.waiting, 0U);
}

TEST(AddressRequestTest, OnlyAddressesOfTheConfigurationAreTaken)
{
    VirtualLogger logger({.takenAddresses = {"192.168.1.7"}});
    const auto answer = [&](const char* address) {
        const wire::FileDescriptor connection(logger.connect());
        return loggerclient::ask(connection.get(), wire::Kind::ADDRESS, address).errorNumber;
    };
    EXPECT_EQ(answer("192.168.1.7"), EADDRINUSE);
    EXPECT_EQ(answer("192.168.1.8"), 0);
}

} // namespace vlogger
