#include "Refusal.h"

#include <vlogger/FrameText.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace tool {

namespace {

std::string shown(const std::string& frame)
{
    return formatShown(parseFrame(frame));
}

} // namespace

TEST(FrameTextTest, EachKindOfFrameIsShownAsOneLine)
{
    EXPECT_EQ(shown("123#DEADBEEF"), "123   [4]  DE AD BE EF");
    EXPECT_EQ(shown("1F334455#11.22"), "1F334455   [2]  11 22");
    EXPECT_EQ(shown("123#"), "123   [0]");
    EXPECT_EQ(shown("123#R"), "123   [0]  remote request");
    EXPECT_EQ(shown("123##1AB"), "123  [01]  AB");
    EXPECT_EQ(shown("123##0"), "123  [00]");
    EXPECT_EQ(shown("20000004#00"), "20000004   [1]  00");
}

TEST(FrameTextTest, FrameThatCannotBeIsRefusedWithItsReason)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "a frame is empty; it is, for example, 123#DEADBEEF"},
        {"123# 00", "frame \"123# 00\": it contains blanks"},
        {"12#00", "frame \"12#00\": the identifier has neither three nor eight hex digits"},
        {"123##0001122334455667788", "frame \"123##0001122334455667788\": a CAN FD frame has 0 to 8, 12, 16, 20, "
                                     "24, 32, 48 or 64 bytes, not 9"},
        {"123##0" + std::string(126, '5'),
         "frame \"123##0" + std::string(126, '5') +
             "\": a CAN FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 or 64 bytes, not 63"},
        {"123", "frame \"123\": the frame has no # between identifier and payload"},
        {"123#0", "frame \"123#0\": the payload is not pairs of hex digits"}};
    for (const auto& [text, refusal] : cases) {
        EXPECT_EQ(refusalOf([&frame = text] { parseFrame(frame); }), refusal);
    }
}

TEST(FrameTextTest, EveryLengthThatAnFdFrameCanHaveIsTaken)
{
    for (const size_t bytes : {0U, 1U, 8U, 12U, 16U, 20U, 24U, 32U, 48U, 64U}) {
        EXPECT_EQ(parseFrame("123##0" + std::string(2 * bytes, 'A')).lengthBytes, bytes);
    }
}

TEST(FrameTextTest, ChannelIsANumberWithOrWithoutItsPrefix)
{
    EXPECT_EQ(parseChannel("can0"), 0);
    EXPECT_EQ(parseChannel("255"), 255);
    for (const char* text : {"", "can", "256", "-1", "can1x", "vcan1", " 1"}) {
        EXPECT_FALSE(parseChannel(text)) << text;
    }
}

TEST(FrameTextTest, FrameComesBackFromItsRecord)
{
    for (const std::string text : {"123#DEADBEEF", "1F334455#11", "123##0AB", "1F334455##0", "123#R", "123#"}) {
        const auto record = recordOf(parseFrame(text), 7);
        ASSERT_TRUE(record) << text;
        EXPECT_EQ(record->channel, 7);
        capture::CandumpFrame expected = parseFrame(text);
        expected.interfaceName = "can7";
        EXPECT_EQ(frameOf(*record), expected) << text;
    }
}

TEST(FrameTextTest, ErrorFrameHasNoRecord)
{
    EXPECT_FALSE(recordOf(parseFrame("20000004#00"), 0));
}

TEST(FrameTextTest, UnknownTypeIsShownAsWhatItsPayloadAsksFor)
{
    wire::CanRecord record;
    record.type = 5;
    record.id = 0xFFFFFFFF;
    record.lengthBytes = 8;
    EXPECT_FALSE(frameOf(record).isFd);
    EXPECT_EQ(frameOf(record).id, 0x7FFU);
    record.lengthBytes = 9;
    EXPECT_TRUE(frameOf(record).isFd);
}

} // namespace tool
