#include "LoggerTest.h"

#include <logger/node/Node.h>

#include <atomic>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

using loggerclient::frame;

namespace board = vlogger::board;

namespace {

class TrafficTest : public LoggerTest
{
protected:
    /// True if nothing more comes after everything that was sent has been served.
    bool staysQuiet(const loggerclient::Reader& stream)
    {
        sut->statistics();
        sut->statistics();
        return stream.isQuiet();
    }
};

TEST_F(TrafficTest, ChannelsAreWiredInPairsByDefault)
{
    start({.board = board::COMBINED_16});
    auto to = reader(board::COMBINED_DEVICE);
    auto from = writer();
    for (const int channel : {0, 1, 2, 3, 100, 254, 255}) {
        ASSERT_EQ(from.write(frame(static_cast<uint8_t>(channel), 0x123)), 0);
        const auto record = to.next();
        ASSERT_TRUE(record);
        EXPECT_EQ(record->channel, channel ^ 1);
    }
    EXPECT_TRUE(staysQuiet(to));
}

TEST_F(TrafficTest, EveryFieldArrivesAsSentButChannelTimeAndKind)
{
    start();
    clock->advance(std::chrono::milliseconds(5));
    auto to = reader();
    auto from = writer();
    wire::CanRecord sent = frame(4, 0x18DA00F1, {1, 2, 3, 255}, 1);
    sent.timestampUs = 99;
    sent.stateError = 7;
    ASSERT_EQ(from.write(sent), 0);
    const auto record = to.next();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->timestampUs, 5000U);
    EXPECT_EQ(record->channel, 5);
    EXPECT_EQ(record->frameKind, 0);
    EXPECT_EQ(record->stateError, 7);
    EXPECT_EQ(record->type, 1);
    EXPECT_EQ(record->id, 0x18DA00F1U);
    EXPECT_EQ(std::vector<uint8_t>(record->data().begin(), record->data().end()),
              (std::vector<uint8_t>{1, 2, 3, 255}));
}

/// Keeps the logger's thread in receive() until it is let go.
class BlockingNode : public vlogger::Node
{
public:
    uint8_t channel() const override { return 0; }
    void start(vlogger::Clock::Instant) override {}
    void receive(const wire::CanRecord&, vlogger::Clock::Instant) override
    {
        entered.release();
        letGo.acquire();
    }
    std::optional<vlogger::Clock::Instant> due() const override { return std::nullopt; }
    void proceed(vlogger::Clock::Instant, const Transmit&) override {}

    std::binary_semaphore entered{0};
    std::binary_semaphore letGo{0};
};

TEST_F(TrafficTest, SettlingWaitsForWhatClientsWroteBeforeTheyWent)
{
    const auto node = std::make_shared<BlockingNode>();
    start({.nodes = {node}});
    auto first = writer();
    std::vector<loggerclient::Writer> others; // more than one round of the loop serves
    for (int i = 0; i < 200; ++i) {
        others.push_back(writer());
    }
    ASSERT_EQ(first.write(frame(0, 0x100)), 0);
    node->entered.acquire();
    for (loggerclient::Writer& other : others) {
        ASSERT_EQ(other.write(frame(2, 0x200)), 0);
        other.close();
    }
    node->letGo.release();
    EXPECT_TRUE(sut->settle(std::chrono::milliseconds(loggerclient::LIMIT_MS)));
    EXPECT_EQ(sut->statistics().framesIn, 1U + others.size());
}

TEST_F(TrafficTest, SettlingEndsAtItsLimitWhileAClientKeepsWriting)
{
    start();
    auto from = writer();
    std::atomic<bool> done{false};
    std::thread busy([&] {
        while (!done) {
            from.write(frame(0, 0x100));
        }
    });
    // A round may find the writer between two frames, so this may take several attempts.
    while (sut->settle(std::chrono::milliseconds(0))) {
    }
    done = true;
    busy.join();
}

TEST_F(TrafficTest, OnlyTheKindOfSentDataFramesChanges)
{
    start();
    auto to = reader();
    auto from = writer();
    for (const auto& [sentKind, receivedKind] : {std::pair{0, 0}, {1, 1}, {2, 0}, {3, 3}, {255, 255}}) {
        wire::CanRecord sent = frame(0, 1);
        sent.frameKind = static_cast<uint8_t>(sentKind);
        ASSERT_EQ(from.write(sent), 0);
        const auto record = to.next();
        ASSERT_TRUE(record);
        EXPECT_EQ(record->frameKind, receivedKind);
    }
}

TEST_F(TrafficTest, PayloadsOfEveryLengthArrive)
{
    start();
    auto to = reader();
    auto from = writer();
    for (size_t length = 0; length <= 64; ++length) {
        const std::vector<uint8_t> payload(length, static_cast<uint8_t>(length));
        ASSERT_EQ(from.write(frame(0, 0x1, payload, 2)), 0);
        const auto record = to.next();
        ASSERT_TRUE(record);
        EXPECT_TRUE(std::ranges::equal(record->data(), payload)) << length;
    }
}

TEST_F(TrafficTest, TimeStampsAreMicrosecondsOfTheDeviceClockWhichStartsAtZero)
{
    clock->advance(std::chrono::hours(7));
    start();
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_EQ(to.next()->timestampUs, 0U);
    clock->advance(std::chrono::nanoseconds(1'000'000'999));
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_EQ(to.next()->timestampUs, 1'000'000U);
}

TEST_F(TrafficTest, OffsetLeadsFromDeviceTimeToSystemTime)
{
    clock->advance(std::chrono::seconds(100));
    clock->setSystemTime(std::chrono::microseconds(1'700'000'000'000'000));
    start();
    clock->advance(std::chrono::seconds(3));
    EXPECT_EQ(sut->deviceOffsetUs(), 1'700'000'000'000'000U);
    EXPECT_EQ(wire::decodeOffset(ask(wire::Kind::OFFSET, "fpgab").body), 1'700'000'000'000'000U);
}

TEST_F(TrafficTest, OffsetFollowsASystemClockThatIsSet)
{
    clock->setSystemTime(std::chrono::seconds(1000));
    start();
    clock->setSystemTime(std::chrono::seconds(1000) + std::chrono::microseconds(1000));
    EXPECT_EQ(sut->deviceOffsetUs(), 1'000'000'000U) << "a millisecond is the jitter of reading two clocks";
    clock->setSystemTime(std::chrono::seconds(1000) + std::chrono::microseconds(1001));
    EXPECT_EQ(sut->deviceOffsetUs(), 1'000'001'001U);
    clock->setSystemTime(std::chrono::seconds(10));
    EXPECT_EQ(sut->deviceOffsetUs(), 10'000'000U);
}

TEST_F(TrafficTest, EveryOpenerGetsEveryFrame)
{
    start();
    auto first = reader();
    auto second = reader();
    auto third = reader();
    auto from = writer();
    for (uint32_t i = 0; i < 100; ++i) {
        ASSERT_EQ(from.write(frame(0, i)), 0);
    }
    for (loggerclient::Reader* const to : {&first, &second, &third}) {
        const auto records = to->take(100);
        ASSERT_EQ(records.size(), 100U);
        for (uint32_t i = 0; i < 100; ++i) {
            EXPECT_EQ(records[i].id, i);
        }
    }
    EXPECT_EQ(sut->statistics().framesQueued, 300U);
}

TEST_F(TrafficTest, AnOpenerHearsNothingFromBeforeItOpened)
{
    start();
    auto early = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    ASSERT_TRUE(early.next());
    auto late = reader();
    ASSERT_EQ(from.write(frame(0, 2)), 0);
    EXPECT_EQ(late.next()->id, 2U);
}

TEST_F(TrafficTest, AFrameReachesEveryOtherChannelOfItsBusAndNotTheSender)
{
    start({.buses = {{3, 0, 7}}});
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 0x55)), 0);
    const auto records = to.take(2);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].channel, 3);
    EXPECT_EQ(records[1].channel, 7);
    EXPECT_TRUE(staysQuiet(to));
}

TEST_F(TrafficTest, AChannelInNoListIsAloneOnItsBus)
{
    start({.buses = {{0, 5}}});
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(2, 0x55)), 0);
    ASSERT_EQ(from.write(frame(1, 0x55)), 0);
    ASSERT_TRUE(waitForFramesIn(2));
    EXPECT_TRUE(staysQuiet(to));
}

TEST_F(TrafficTest, AChannelOnTwoBusesIsRefused)
{
    EXPECT_THROW(start({.buses = {{0, 1}, {2, 1}}}), std::invalid_argument);
    EXPECT_THROW(start({.buses = {{4, 4}}}), std::invalid_argument);
}

TEST_F(TrafficTest, ANodeReachesEveryChannelOfItsBus)
{
    start();
    auto to = reader();
    sut->sendFromNode(frame(2, 0x7E8, {1}));
    const auto records = to.take(2);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].channel, 2);
    EXPECT_EQ(records[1].channel, 3);
    EXPECT_EQ(records[0].frameKind, 0);
}

TEST_F(TrafficTest, TheDeviceThatIsWrittenDoesNotDecideTheChannel)
{
    start({.board = board::WITH_EXTENSION});
    auto to = reader(board::EXTENSION_DEVICE);
    auto from = writer(board::MAIN_DEVICE);
    ASSERT_EQ(from.write(frame(20, 0x55)), 0);
    EXPECT_EQ(to.next()->channel, 21);
}

TEST_F(TrafficTest, OrderHoldsPerWriterOverManyFrames)
{
    start();
    auto to = reader();
    auto from = writer();
    constexpr uint32_t FRAMES = 20000;
    std::thread sender([&] {
        for (uint32_t i = 0; i < FRAMES; ++i) {
            ASSERT_EQ(from.write(frame(0, 0x100, numbered(i))), 0);
        }
    });
    const auto records = to.take(FRAMES);
    sender.join();
    ASSERT_EQ(records.size(), FRAMES);
    for (uint32_t i = 0; i < FRAMES; ++i) {
        ASSERT_EQ(numberOf(records[i]), i);
    }
}

TEST_F(TrafficTest, TwoWritersShareADevice)
{
    start();
    auto to = reader();
    auto first = writer();
    auto second = writer();
    ASSERT_EQ(first.write(frame(0, 1)), 0);
    EXPECT_EQ(to.next()->id, 1U);
    ASSERT_EQ(second.write(frame(2, 2)), 0);
    EXPECT_EQ(to.next()->id, 2U);
    EXPECT_EQ(sut->statistics().writers, 2U);
}

TEST_F(TrafficTest, PacketsThatAreNoFrameAreCountedAndIgnored)
{
    start();
    auto to = reader();
    auto from = writer();
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> good;
    const size_t size = wire::encode(frame(0, 0x77, {1, 2}), good);
    std::vector<std::vector<uint8_t>> bad;
    bad.push_back({0});
    bad.push_back(std::vector<uint8_t>(good.begin(), good.begin() + 22)); // shorter than its length
    bad.push_back(std::vector<uint8_t>(good.begin(), good.begin() + static_cast<int>(size) + 1)); // longer
    bad.emplace_back(good.begin(), good.begin() + static_cast<int>(size));
    bad.back()[3] = 12; // another type
    bad.emplace_back(good.begin(), good.begin() + static_cast<int>(size));
    bad.back()[4] = 1; // a field that must be zero
    bad.push_back(std::vector<uint8_t>(128, 0xFF));
    bad.push_back(std::vector<uint8_t>(129, 0)); // more than is ever kept
    bad.push_back(std::vector<uint8_t>(60000, 0));
    for (const auto& packet : bad) {
        ASSERT_TRUE(from.writeRaw(packet));
    }
    ASSERT_EQ(from.write(frame(0, 0x78)), 0);
    EXPECT_EQ(to.next()->id, 0x78U);
    EXPECT_EQ(sut->statistics().framesMalformed, bad.size());
    EXPECT_EQ(sut->statistics().framesIn, 1U);
}

TEST_F(TrafficTest, EmptyPacketsAreNoEndOfTheConnection)
{
    start();
    auto to = reader();
    auto from = writer();
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(from.writeRaw({}));
    }
    ASSERT_EQ(from.write(frame(0, 0x78)), 0);
    EXPECT_EQ(to.next()->id, 0x78U);
    EXPECT_EQ(sut->statistics().framesMalformed, 200U);
}

TEST_F(TrafficTest, FramesOfAWriterThatClosesAtOnceAllArrive)
{
    start();
    auto to = reader();
    {
        auto from = writer();
        for (uint32_t i = 0; i < 150; ++i) {
            ASSERT_EQ(from.write(frame(0, i)), 0);
        }
    }
    EXPECT_EQ(to.take(150).size(), 150U);
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().writers == 0; }));
}

TEST_F(TrafficTest, AReaderThatClosesIsForgotten)
{
    start();
    auto gone = reader();
    auto to = reader();
    EXPECT_EQ(sut->statistics().readers, 2U);
    gone.close();
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().readers == 1; }));
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_TRUE(to.next());
}

TEST_F(TrafficTest, BytesThatAReaderSendsAreNobodysBusiness)
{
    start();
    auto to = reader();
    auto from = writer();
    const std::vector<uint8_t> noise(1000, 0xAA);
    ASSERT_EQ(::send(to.get(), noise.data(), noise.size(), MSG_NOSIGNAL), 1000);
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_TRUE(to.next());
}

TEST_F(TrafficTest, StatisticsCountWhatHappened)
{
    start();
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    ASSERT_EQ(from.write(frame(1, 2)), 0);
    sut->sendFromNode(frame(4, 3));
    ASSERT_EQ(to.take(4).size(), 4U);
    const vlogger::Statistics statistics = sut->statistics();
    EXPECT_EQ(statistics.framesIn, 3U);
    EXPECT_EQ(statistics.framesMalformed, 0U);
    EXPECT_EQ(statistics.framesQueued, 4U) << "the node's frame reaches both channels of its bus";
    EXPECT_EQ(statistics.framesDropped, 0U);
    EXPECT_EQ(statistics.connectionsRefused, 0U);
    EXPECT_EQ(statistics.readers, 1U);
    EXPECT_EQ(statistics.writers, 1U);
    const auto readers = sut->readerStatistics();
    ASSERT_EQ(readers.size(), 1U);
    EXPECT_EQ(readers[0].device, MAIN);
    EXPECT_EQ(readers[0].framesQueued, 4U);
    EXPECT_EQ(readers[0].bytesWaiting, 0U);
    EXPECT_FALSE(readers[0].hasStalled);
}

} // namespace
