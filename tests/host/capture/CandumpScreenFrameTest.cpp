#include <capture/CandumpLog.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace capture {

namespace {

struct Line
{
    CandumpFrame frame;
    LineDetails details;
};

Line parsed(const std::string& text)
{
    Line line;
    EXPECT_TRUE(parseCandumpLine(text, line.frame, &line.details)) << text;
    return line;
}

/// The line of a log that says the same.
std::string asLog(const std::string& text)
{
    return formatCandumpLine(parsed(text).frame);
}

std::string refusalOf(const std::string& text)
{
    try {
        CandumpFrame frame;
        parseCandumpLine(text, frame);
    } catch (const CandumpError& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(CandumpScreenFrameTest, EachKindOfFrameIsRead)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {" (1700000000.000250)  can0  1A4   [8]  01 02 03 04 05 06 07 08",
         "(1700000000.000250) can0 1A4#0102030405060708"},
        {" (1700000000.000250)  can0  1A4   [0]", "(1700000000.000250) can0 1A4#"},
        {" (1700000000.000300)  can1  18FEF100   [2]  FF FF", "(1700000000.000300) can1 18FEF100#FFFF"},
        {" (1700000000.000350)  can2  2B0  [03]  AA BB CC", "(1700000000.000350) can2 2B0##0AABBCC"},
        {" (1700000000.000350)  can2  2B0  [00]", "(1700000000.000350) can2 2B0##0"},
        {" (1700000000.000400)  can0  1A4   [0]  remote request", "(1700000000.000400) can0 1A4#R"},
        {" (1700000000.000400)  can0  1A4   [4]  remote request", "(1700000000.000400) can0 1A4#R4"},
        {" (1700000000.000450)  can0  20000004   [1]  00   ERRORFRAME", "(1700000000.000450) can0 20000004#00"},
    };
    for (const auto& [shown, logged] : cases) {
        EXPECT_EQ(asLog(shown), logged);
        EXPECT_EQ(asLog(shown + "\r\n"), logged);
    }
}

TEST(CandumpScreenFrameTest, LineWithoutATimeStandsAtZero)
{
    const Line line = parsed("  can0  1A4   [1]  FF");
    EXPECT_FALSE(line.details.hasTime);
    EXPECT_EQ(formatCandumpLine(line.frame), "(0.000000) can0 1A4#FF");
    EXPECT_TRUE(parsed(" (1.0)  can0  1A4   [1]  FF").details.hasTime);
}

TEST(CandumpScreenFrameTest, DirectionIsReadWithAndWithoutFlags)
{
    EXPECT_EQ(parsed("  can0  RX - -  1A4   [1]  FF").details.direction, Direction::RECEIVED);
    EXPECT_EQ(parsed("  can0  TX  1A4   [1]  FF").details.direction, Direction::SENT);
    EXPECT_EQ(parsed("  can0  1A4   [1]  FF").details.direction, Direction::UNKNOWN);
}

TEST(CandumpScreenFrameTest, FlagsOfAnFdFrameStandBehindTheDirection)
{
    EXPECT_EQ(asLog("  can0  RX B -  1A4  [01]  FF"), "(0.000000) can0 1A4##1FF");
    EXPECT_EQ(asLog("  can0  RX - E  1A4  [01]  FF"), "(0.000000) can0 1A4##2FF");
    EXPECT_EQ(asLog("  can0  TX B E  1A4  [01]  FF"), "(0.000000) can0 1A4##3FF");
    EXPECT_EQ(asLog("  can0  TX B E  1A4   [1]  FF"), "(0.000000) can0 1A4#FF");
}

TEST(CandumpScreenFrameTest, BytesAsTextAreSkippedWhateverTheyAre)
{
    for (const char* text : {"'........'", "'a [8] b'", "'#'", "''"}) {
        EXPECT_EQ(asLog(std::string("  can0  1A4   [1]  FF   ") + text), "(0.000000) can0 1A4#FF") << text;
    }
}

TEST(CandumpScreenFrameTest, LongestFdFrameFits)
{
    std::string line = " (1700000000.000250)  can0  RX B E  18FEF100  [64] ";
    for (int i = 0; i < 64; ++i) {
        line += " 5A";
    }
    EXPECT_EQ(parsed(line + "   '" + std::string(64, 'Z') + "'").frame.lengthBytes, 64);
}

TEST(CandumpScreenFrameTest, EveryMalformedPartIsRefusedWithItsReason)
{
    const std::string length = "the length in brackets is neither 0 to 8 nor, of a CAN FD frame, 00 to 64";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"  can0  1A   [1]  FF", "the identifier has neither three nor eight hex digits"},
        {"  can0  1A4   [9]  FF", length},
        {"  can0  1A4   []  FF", length},
        {"  can0  1A4   [x]  FF", length},
        {"  can0  1A4  [65]  FF", length},
        {"  can0  1A4  1 [1]  FF", length},
        {"  can0  1A4   [2]  FF", "the payload is not 2 pairs of hex digits"},
        {"  can0  1A4   [1]  FFF", "the payload is not 1 pairs of hex digits"},
        {"  can0  1A4   [1]  255", "the payload is not 1 pairs of hex digits"},
        {"  can0  1A4   [1]  FF FF", "something other than text in quotes follows the payload"},
        {"  can0  1A4  [01]  remote request", "only a classic frame is a remote request"},
        {"  can0  20000004   [1]  remote request", "only a classic frame is a remote request"},
        {"  can0  20000004  [01]  00   ERRORFRAME", "an error frame is no CAN FD frame"},
        {" (1.0) [", "the line ends behind the interface"},
    };
    for (const auto& [line, reason] : cases) {
        EXPECT_EQ(refusalOf(line), reason) << line;
    }
}

} // namespace capture
