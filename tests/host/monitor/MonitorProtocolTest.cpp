#include <wire/MonitorProtocol.h>
#include <wire/Protocol.h>
#include <wire/StageStatistics.h>

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

namespace wire {

namespace {

CanRecord frame(uint8_t channel, uint32_t id, uint8_t length)
{
    CanRecord record;
    record.timestampUs = 123456789;
    record.channel = channel;
    record.id = id;
    record.lengthBytes = length;
    return record;
}

} // namespace

TEST(MonitorProtocolTest, ChannelsComeBackFromTheirText)
{
    EXPECT_EQ(textOfChannels(ChannelSet().set(0).set(3).set(255)), "0,3,255");
    EXPECT_EQ(channelsOfText("0,3,255"), ChannelSet().set(0).set(3).set(255));
    EXPECT_EQ(textOfChannels(ChannelSet().set()), "");
    EXPECT_EQ(channelsOfText(""), ChannelSet().set());
}

TEST(MonitorProtocolTest, TextThatIsNoListOfChannelsIsRefused)
{
    for (const char* text : {"x", "0,", ",0", "256", "-1", "0 1", "0,,1", "0x1"}) {
        EXPECT_FALSE(channelsOfText(text)) << text;
    }
}

TEST(MonitorProtocolTest, EventsComeBackHoweverTheBytesAreCut)
{
    std::vector<uint8_t> stream;
    std::array<uint8_t, CAN_RECORD_MAX_BYTES> bytes;
    for (uint8_t length = 0; length <= 64; ++length) {
        const size_t size = encodeMonitorFrame(frame(length, 0x100U + length, length), length % 2 == 0, bytes);
        stream.insert(stream.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    }
    const auto dropped = encodeMonitorDropped(77);
    stream.insert(stream.end(), dropped.begin(), dropped.end());
    for (const size_t step : {size_t{1}, size_t{7}, size_t{1000}, stream.size()}) {
        MonitorDecoder sut;
        MonitorEvent event;
        uint8_t length = 0;
        for (size_t at = 0; at < stream.size(); at += step) {
            sut.feed(std::span(stream).subspan(at, std::min(step, stream.size() - at)));
            while (sut.next(event)) {
                if (length <= 64) {
                    EXPECT_EQ(event.dropped, 0U);
                    EXPECT_EQ(event.isSent, length % 2 == 0);
                    EXPECT_EQ(event.frame.channel, length);
                    EXPECT_EQ(event.frame.id, 0x100U + length);
                    EXPECT_EQ(event.frame.lengthBytes, length);
                    EXPECT_EQ(event.frame.timestampUs, 123456789U);
                } else {
                    EXPECT_EQ(event.dropped, 77U);
                }
                ++length;
            }
        }
        EXPECT_EQ(length, 66);
    }
}

TEST(MonitorProtocolTest, StreamOfAnotherKindIsRefused)
{
    std::array<uint8_t, CAN_RECORD_MAX_BYTES> bytes;
    const size_t size = encode(frame(0, 1, 0), bytes);
    MonitorDecoder sut;
    MonitorEvent event;
    sut.feed(std::span(bytes).first(size));
    EXPECT_THROW(sut.next(event), std::runtime_error);
    MonitorDecoder other;
    other.feed(std::vector<uint8_t>{0, 3, 0, 0, 0, 0});
    EXPECT_THROW(other.next(event), std::runtime_error);
}

TEST(MonitorProtocolTest, LossOfNoFramesIsRefused)
{
    MonitorDecoder sut;
    MonitorEvent event;
    sut.feed(encodeMonitorDropped(0));
    EXPECT_THROW(sut.next(event), std::runtime_error);
}

TEST(MonitorProtocolTest, FinishIsToldFromEverythingElse)
{
    EXPECT_TRUE(isFinish(encodeFinish()));
    EXPECT_FALSE(isFinish(encodeFault(1)));
    EXPECT_FALSE(isFinish({}));
}

TEST(StageStatisticsTest, ReportComesBackFromItsBytes)
{
    const StageReport report{
        .uptimeUs = 5,
        .stages = {{.stage = Stage::BUS, .name = "can0 can1", .in = 1, .out = 2, .waiting = 3, .dropped = 4},
                   {.stage = Stage::MONITOR, .name = "", .in = ~uint64_t{0}}}};
    EXPECT_EQ(decodeStageReport(encodeStageReport(report)), report);
    EXPECT_EQ(decodeStageReport(encodeStageReport({})), StageReport{});
}

TEST(StageStatisticsTest, ReportCutAnywhereOrWithMoreBehindItIsNone)
{
    std::vector<uint8_t> bytes = encodeStageReport({.uptimeUs = 5, .stages = {{.name = "bus"}, {.name = "two"}}});
    for (size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(decodeStageReport(std::span(bytes).first(size))) << size;
    }
    bytes.push_back(0);
    EXPECT_FALSE(decodeStageReport(bytes));
}

TEST(StageStatisticsTest, ReportThatIsTooLongIsCutToWholeStages)
{
    StageReport report;
    for (int i = 0; i < 2000; ++i) {
        report.stages.push_back({.name = std::string(100, 'x')});
    }
    const std::vector<uint8_t> bytes = encodeStageReport(report);
    EXPECT_LE(bytes.size(), STAGE_REPORT_MAX_BYTES);
    const auto decoded = decodeStageReport(bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->stages.size(), (STAGE_REPORT_MAX_BYTES - 12) / 135);
}

TEST(StageStatisticsTest, EveryStageHasItsWord)
{
    EXPECT_STREQ(textOf(Stage::BUS), "bus");
    EXPECT_STREQ(textOf(Stage::DEVICE_QUEUE), "device queue");
    EXPECT_STREQ(textOf(Stage::STREAM), "stream");
    EXPECT_STREQ(textOf(Stage::READER), "reader");
    EXPECT_STREQ(textOf(Stage::MONITOR), "monitor");
    EXPECT_STREQ(textOf(Stage::COUNT), "unknown");
}

} // namespace wire
