#include <capture/CandumpLog.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace capture {

namespace {

CandumpFrame parsed(std::string_view line)
{
    CandumpFrame frame;
    EXPECT_TRUE(parseCandumpLine(line, frame)) << line;
    return frame;
}

LineDetails detailsOf(std::string_view line)
{
    CandumpFrame frame;
    LineDetails details;
    EXPECT_TRUE(parseCandumpLine(line, frame, &details)) << line;
    return details;
}

/// The reason with which a line is refused; empty if it is not.
std::string refusalOf(std::string_view line)
{
    CandumpFrame frame;
    try {
        parseCandumpLine(line, frame);
    } catch (const CandumpError& error) {
        EXPECT_EQ(error.lineNumber(), 0U);
        return error.what();
    }
    return "";
}

std::vector<uint8_t> payloadOf(const CandumpFrame& frame)
{
    return {frame.data().begin(), frame.data().end()};
}

} // namespace

TEST(CandumpLineTest, StandardFrameHasAllItsFields)
{
    const CandumpFrame frame = parsed("(1700000000.000250) can0 1A4#0102FF");
    EXPECT_EQ(frame.timestampUs, 1700000000000250U);
    EXPECT_EQ(frame.interfaceName, "can0");
    EXPECT_EQ(frame.kind, FrameKind::DATA);
    EXPECT_FALSE(frame.isExtended);
    EXPECT_FALSE(frame.isFd);
    EXPECT_EQ(frame.id, 0x1A4U);
    EXPECT_EQ(payloadOf(frame), (std::vector<uint8_t>{1, 2, 0xFF}));
}

TEST(CandumpLineTest, EightDigitsAreAnExtendedIdentifierHoweverSmall)
{
    const CandumpFrame frame = parsed("(1.000000) can0 00000123#");
    EXPECT_TRUE(frame.isExtended);
    EXPECT_EQ(frame.id, 0x123U);
    EXPECT_EQ(frame.lengthBytes, 0);
}

TEST(CandumpLineTest, FdFrameHasFlagsAndUpTo64Bytes)
{
    const CandumpFrame frame = parsed("(1.000000) can2 2B0##3" + std::string(128, 'A'));
    EXPECT_TRUE(frame.isFd);
    EXPECT_EQ(frame.fdFlags, 3);
    EXPECT_EQ(payloadOf(frame), std::vector<uint8_t>(64, 0xAA));
}

TEST(CandumpLineTest, EmptyFdFrameIsAccepted)
{
    const CandumpFrame frame = parsed("(1.000000) can2 1F334455##0");
    EXPECT_TRUE(frame.isFd);
    EXPECT_TRUE(frame.isExtended);
    EXPECT_EQ(frame.lengthBytes, 0);
}

TEST(CandumpLineTest, RemoteFrameHasNoPayloadAndARequestedLength)
{
    const CandumpFrame frame = parsed("(1.000000) can0 123#R4");
    EXPECT_EQ(frame.kind, FrameKind::REMOTE);
    EXPECT_EQ(frame.lengthBytes, 4);
    EXPECT_TRUE(frame.data().empty());
    EXPECT_EQ(parsed("(1.000000) can0 123#R").lengthBytes, 0);
    EXPECT_EQ(parsed("(1.000000) can0 123#r4"), frame);
}

TEST(CandumpLineTest, ErrorFrameKeepsItsClassWithoutTheFlag)
{
    const CandumpFrame frame = parsed("(1.000000) can0 20000004#0008000000000000");
    EXPECT_EQ(frame.kind, FrameKind::ERROR);
    EXPECT_EQ(frame.id, 4U);
    EXPECT_EQ(frame.lengthBytes, 8);
}

TEST(CandumpLineTest, LineEndsBlanksAndDirectionLetterAreTolerated)
{
    const CandumpFrame expected = parsed("(1.000002) can0 123#0102");
    for (const char* line :
         {"(1.000002) can0 123#0102\n", "(1.000002) can0 123#0102\r\n", "(1.000002) can0 123#0102 R",
          "(1.000002) can0 123#0102 T\r\n", "  (1.000002)\tcan0   123#0102  "}) {
        EXPECT_EQ(parsed(line), expected) << line;
    }
}

TEST(CandumpLineTest, LowerCaseDigitsAndDotsBetweenBytesAreTolerated)
{
    EXPECT_EQ(parsed("(1.000002) can0 1ab#de.ad.be.ef"), parsed("(1.000002) can0 1AB#DEADBEEF"));
}

TEST(CandumpLineTest, LengthCodeBehindAFullClassicFrameIsKept)
{
    const CandumpFrame frame = parsed("(1.000002) can0 123#1122334455667788_F");
    EXPECT_EQ(frame.lengthCode, 15);
    EXPECT_EQ(frame.lengthBytes, 8);
    EXPECT_EQ(parsed("(1.000002) can0 123#1122334455667788").lengthCode, 0);
}

TEST(CandumpLineTest, LengthCodeBehindARemoteFrameIsKept)
{
    const CandumpFrame frame = parsed("(1.000002) can0 123#R8_9");
    EXPECT_EQ(frame.kind, FrameKind::REMOTE);
    EXPECT_EQ(frame.lengthCode, 9);
    EXPECT_EQ(frame.lengthBytes, 8);
}

TEST(CandumpLineTest, LengthCodeThatCannotBeIsRefused)
{
    EXPECT_EQ(refusalOf("(1.0) can0 123#1122_F"), "a length code stands behind 8 bytes only");
    EXPECT_EQ(refusalOf("(1.0) can0 123#R_8"), "the length of a remote frame is not 0 to 8");
    EXPECT_EQ(refusalOf("(1.0) can0 123#R4_9"), "a length code stands behind 8 bytes only");
    EXPECT_EQ(refusalOf("(1.0) can0 123#1122334455667788_8"), "the payload is not pairs of hex digits");
    EXPECT_EQ(refusalOf("(1.0) can0 123##01122334455667788_F"), "the payload is not pairs of hex digits");
}

TEST(CandumpLineTest, DirectionLetterIsADetailOfTheLine)
{
    EXPECT_EQ(detailsOf("(1.000002) can0 123#0102 R").direction, Direction::RECEIVED);
    EXPECT_EQ(detailsOf("(1.000002) can0 123#0102 T").direction, Direction::SENT);
    EXPECT_EQ(detailsOf("(1.000002) can0 123#0102").direction, Direction::UNKNOWN);
}

TEST(CandumpLineTest, NanosecondsAreADetailOfTheLine)
{
    EXPECT_EQ(detailsOf("(3.000001999) can0 123#").nanoseconds, 999);
    EXPECT_EQ(detailsOf("(3.0000015) can0 123#").nanoseconds, 500);
    EXPECT_EQ(detailsOf("(3.000001) can0 123#").nanoseconds, 0);
}

TEST(CandumpLineTest, FractionsOfOtherLengthsMeanTheSameTime)
{
    EXPECT_EQ(parsed("(3.5) can0 123#").timestampUs, 3500000U);
    EXPECT_EQ(parsed("(3.000001999) can0 123#").timestampUs, 3000001U);
}

TEST(CandumpLineTest, BlankLineHoldsNoFrame)
{
    CandumpFrame frame;
    for (const char* line : {"", "\n", "\r\n", " \t "}) {
        EXPECT_FALSE(parseCandumpLine(line, frame));
    }
}

TEST(CandumpLineTest, EveryMalformedPartIsRefusedWithItsReason)
{
    const std::string timestamp = "the time stamp is not seconds, a dot and decimals";
    const std::string payload = "the payload is not pairs of hex digits";
    const std::string identifier = "the identifier has neither three nor eight hex digits";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"can0 123#00", "the line does not begin with a time stamp in parentheses"},
        {"(", "the line does not begin with a time stamp in parentheses"},
        {"(1.000000 can0 123#00", "the line does not begin with a time stamp in parentheses"},
        {"can0 123#00 [", "the line does not begin with a time stamp in parentheses"},
        {"(2024-01-31 12:00:00.000000) can0 123#00",
         "the time stamp is a date; candump shows one that can be read with -t a"},
        {"() can0 123#00", timestamp},
        {"(1) can0 123#00", timestamp},
        {"(1.) can0 123#00", timestamp},
        {"(.5) can0 123#00", timestamp},
        {"(-1.000000) can0 123#00", timestamp},
        {"(1.-00000) can0 123#00", timestamp},
        {"(1.00x000) can0 123#00", timestamp},
        {"(1.000000x) can0 123#00", timestamp},
        {"(1.0000000000) can0 123#00", timestamp},
        {"(99999999999999999999.0) can0 123#00", timestamp},
        {"(18446744073709.0) can0 123#00", "the time stamp is out of range"},
        {"(1.000000)", "the line ends behind the time stamp"},
        {"(1.000000) can0", "the line ends behind the interface"},
        {"(1.000000) can0 123", "the frame has no # between identifier and payload"},
        {"(1.000000) can0 #00", identifier},
        {"(1.000000) can0 12#00", identifier},
        {"(1.000000) can0 1234#00", identifier},
        {"(1.000000) can0 123456789#00", identifier},
        {"(1.000000) can0 12G#00", identifier},
        {"(1.000000) can0 -12#00", identifier},
        {"(1.000000) can0 800#00", "an identifier of three digits goes up to 7FF"},
        {"(1.000000) can0 40000000#00",
         "an identifier of eight digits goes up to 1FFFFFFF, an error frame's up to 3FFFFFFF"},
        {"(1.000000) can0 123#0", payload},
        {"(1.000000) can0 123#0G", payload},
        {"(1.000000) can0 123#.00", payload},
        {"(1.000000) can0 123#00.", payload},
        {"(1.000000) can0 123#00..00", payload},
        {"(1.000000) can0 123#000000000000000000", "the payload has more than 8 bytes"},
        {"(1.000000) can0 123##0" + std::string(130, '0'), "the payload has more than 64 bytes"},
        {"(1.000000) can0 123##", "a CAN FD frame has no digit of flags behind ##"},
        {"(1.000000) can0 123##G", "a CAN FD frame has no digit of flags behind ##"},
        {"(1.000000) can0 20000004##0", "an error frame is no CAN FD frame"},
        {"(1.000000) can0 123#R9", "the length of a remote frame is not 0 to 8"},
        {"(1.000000) can0 123#Rx", "the length of a remote frame is not 0 to 8"},
        {"(1.000000) can0 123#00 X", "something other than a direction letter follows the frame"},
        {"(1.000000) can0 123#00 R R", "something follows the direction letter"},
    };
    for (const auto& [line, reason] : cases) {
        EXPECT_EQ(refusalOf(line), reason) << line;
    }
}

TEST(CandumpLineTest, LastTimeStampThatFitsIsAccepted)
{
    EXPECT_EQ(parsed("(18446744073708.999999) can0 123#").timestampUs, 18446744073708999999U);
}

TEST(CandumpLineTest, FormattingGivesExactlyTheCanonicalLine)
{
    for (const std::string line :
         {"(1700000000.000250) can0 1A4#0102030405060708", "(0.000000) can0 000#",
          "(12.900000) vcan12 18FEF100#FFFF", "(1.000001) can2 2B0##1AABBCC", "(1.000001) can2 00000001##F",
          "(1.000001) can0 123#R", "(1.000001) can0 00000123#R8", "(1.000001) can0 123#R8_E",
          "(1.000001) can0 123#1122334455667788_9", "(1.000001) can0 20000004#0008000000000000"}) {
        EXPECT_EQ(formatCandumpLine(parsed(line)), line);
    }
}

TEST(CandumpLineTest, EveryLengthComesBackFromItsLine)
{
    for (const bool isFd : {false, true}) {
        for (uint8_t length = 0; length <= (isFd ? 64 : 8); ++length) {
            CandumpFrame frame{.timestampUs = 1000000, .interfaceName = "can0", .isFd = isFd, .id = 0x7FF};
            frame.lengthBytes = length;
            std::fill_n(frame.payload.begin(), length, uint8_t{0x5A});
            EXPECT_EQ(parsed(formatCandumpLine(frame)), frame) << int{length};
        }
    }
}

TEST(CandumpReaderTest, FramesComeInOrderOverBlankLinesAndWithoutALastLineEnd)
{
    std::istringstream log("(1.000000) can0 001#\r\n\r\n\n(2.000000) can1 002#");
    CandumpReader sut(log);
    CandumpFrame frame;
    EXPECT_EQ(sut.lineNumber(), 0U);
    ASSERT_TRUE(sut.next(frame));
    EXPECT_EQ(frame.id, 1U);
    EXPECT_EQ(sut.lineNumber(), 1U);
    ASSERT_TRUE(sut.next(frame));
    EXPECT_EQ(frame.id, 2U);
    EXPECT_EQ(sut.lineNumber(), 4U);
    EXPECT_FALSE(sut.next(frame));
    EXPECT_FALSE(sut.next(frame));
}

TEST(CandumpReaderTest, MalformedLineIsNamedAndTheNextOneStillRead)
{
    std::istringstream log("(1.000000) can0 001#\nnonsense\n(2.000000) can0 002#\n");
    CandumpReader sut(log);
    CandumpFrame frame;
    ASSERT_TRUE(sut.next(frame));
    try {
        sut.next(frame);
        FAIL() << "the malformed line was accepted";
    } catch (const CandumpError& error) {
        EXPECT_STREQ(error.what(), "line 2: the line does not begin with a time stamp in parentheses");
        EXPECT_EQ(error.lineNumber(), 2U);
    }
    ASSERT_TRUE(sut.next(frame));
    EXPECT_EQ(frame.id, 2U);
}

TEST(CandumpReaderTest, OverlongLineIsRefusedAndTheNextOneStillRead)
{
    std::istringstream log(std::string(100000, 'x') + "\n(2.000000) can0 002#\n");
    CandumpReader sut(log);
    CandumpFrame frame;
    try {
        sut.next(frame);
        FAIL() << "the overlong line was accepted";
    } catch (const CandumpError& error) {
        EXPECT_STREQ(error.what(), "line 1: the line is too long for this format");
    }
    ASSERT_TRUE(sut.next(frame));
    EXPECT_EQ(frame.id, 2U);
    EXPECT_FALSE(sut.next(frame));
}

TEST(CandumpReaderTest, OverlongLastLineWithoutLineEndIsRefusedOnce)
{
    std::istringstream log(std::string(600, 'x'));
    CandumpReader sut(log);
    CandumpFrame frame;
    EXPECT_THROW(sut.next(frame), CandumpError);
    EXPECT_FALSE(sut.next(frame));
}

TEST(CandumpReaderTest, ZeroByteDoesNotHideTheRestOfItsLine)
{
    std::istringstream log(std::string("(1.000000) can0 001#\0junk\n", 26));
    CandumpReader sut(log);
    CandumpFrame frame;
    EXPECT_THROW(sut.next(frame), CandumpError);
}

TEST(CandumpReaderTest, DirectoryCannotBeRead)
{
    std::ifstream log(std::filesystem::temp_directory_path());
    CandumpReader sut(log);
    CandumpFrame frame;
    try {
        sut.next(frame);
        FAIL() << "a directory was read as a log";
    } catch (const CandumpError& error) {
        EXPECT_STREQ(error.what(), "line 1: the log cannot be read");
    }
}

TEST(CandumpReaderTest, EmptyLogHasNoFrame)
{
    std::istringstream log;
    CandumpReader sut(log);
    CandumpFrame frame;
    EXPECT_FALSE(sut.next(frame));
}

} // namespace capture
