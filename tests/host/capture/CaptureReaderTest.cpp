#include <capture/CaptureReader.h>
#include <capture/PcapngEncoder.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

namespace capture {

namespace {

const std::string LINE = "(1.000000) can0 123#AA\n";

std::string pcapngOf(const CaptureFrame& frame)
{
    PcapngEncoder encoder("test");
    std::vector<uint8_t> bytes;
    encoder.begin(bytes);
    encoder.encode(frame, bytes);
    encoder.finish(bytes);
    return {bytes.begin(), bytes.end()};
}

CaptureFrame frameOf(const std::string& line)
{
    CaptureFrame frame;
    EXPECT_TRUE(parseCandumpLine(line, frame.frame));
    return frame;
}

/// Why a capture is refused as a whole; empty if it is not.
std::string refusalOf(const std::string& bytes)
{
    std::istringstream input(bytes);
    try {
        makeCaptureReader(input);
    } catch (const CaptureError& error) {
        EXPECT_FALSE(error.canContinue());
        return error.what();
    }
    return "";
}

} // namespace

TEST(CaptureReaderTest, FormatIsKnownByTheFirstBytes)
{
    const CaptureFrame expected = frameOf(LINE);
    for (const std::string& bytes : {pcapngOf(expected), LINE, "\n\n" + LINE, "\n" + LINE, "\n\r\n" + LINE}) {
        std::istringstream input(bytes);
        const auto sut = makeCaptureReader(input);
        CaptureFrame frame;
        ASSERT_TRUE(sut->next(frame)) << bytes;
        EXPECT_EQ(frame, expected) << bytes;
        EXPECT_FALSE(sut->next(frame));
    }
}

TEST(CaptureReaderTest, EmptyInputAndSingleLineFeedHoldNothing)
{
    for (const char* bytes : {"", "\n"}) {
        std::istringstream input(bytes);
        CaptureFrame frame;
        EXPECT_FALSE(makeCaptureReader(input)->next(frame));
    }
}

TEST(CaptureReaderTest, ByteOrderMarkInFrontOfALogIsSkipped)
{
    std::istringstream input("\xEF\xBB\xBF" + LINE);
    CaptureFrame frame;
    ASSERT_TRUE(makeCaptureReader(input)->next(frame));
    EXPECT_EQ(frame, frameOf(LINE));
}

TEST(CaptureReaderTest, MalformedLineIsNamedAndTheNextOneStillRead)
{
    std::istringstream input("nonsense\n(1.0) can0 123#AA\n");
    const auto sut = makeCaptureReader(input);
    CaptureFrame frame;
    try {
        sut->next(frame);
        FAIL() << "the line was accepted";
    } catch (const CaptureError& error) {
        EXPECT_STREQ(error.what(), "line 1: the line does not begin with a time stamp in parentheses");
        EXPECT_TRUE(error.canContinue());
    }
    EXPECT_TRUE(sut->next(frame));
}

TEST(CaptureReaderTest, DetailsOfALineAreThoseOfItsFrame)
{
    std::istringstream input("(1.000000007) can0 123#AA T\n(1.0) can0 123#AA\n");
    const auto sut = makeCaptureReader(input);
    CaptureFrame frame;
    ASSERT_TRUE(sut->next(frame));
    EXPECT_EQ(frame.nanoseconds, 7);
    EXPECT_EQ(frame.direction, Direction::SENT);
    ASSERT_TRUE(sut->next(frame));
    EXPECT_EQ(frame, frameOf(LINE));
    EXPECT_TRUE(sut->remarks().empty());
}

TEST(CaptureReaderTest, LinesWithoutATimeAreCounted)
{
    std::istringstream input("  can0  123   [1]  AA\n  can0  124   [0]\n" + LINE);
    const auto sut = makeCaptureReader(input);
    CaptureFrame frame;
    while (sut->next(frame)) {
    }
    EXPECT_EQ(sut->remarks(),
              std::vector<std::string>{"2 frames have no time and stand at 0; candump shows times with -t a"});
}

TEST(CaptureReaderTest, FormatThatIsNotReadIsNamedWithTheRemedy)
{
    const std::string pcap = "this is a classic pcap file; editcap -F pcapng makes a pcapng file of it";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"\xD4\xC3\xB2\xA1", pcap},
        {"\xA1\xB2\xC3\xD4", pcap},
        {"\x4D\x3C\xB2\xA1", pcap},
        {"\xA1\xB2\x3C\x4D", pcap},
        {"\x1F\x8B\x08", "this file is compressed with gzip; unpack it first: gunzip -c FILE | vlogger COMMAND -"},
        {"\xFD"
         "7zXZ",
         "this file is compressed with xz; unpack it first: unxz -c FILE | vlogger COMMAND -"},
        {"\x28\xB5\x2F\xFD",
         "this file is compressed with zstd; unpack it first: unzstd -c FILE | vlogger COMMAND -"},
        {"PK\x03\x04", "this is a zip archive; unpack it first: unzip -p FILE | vlogger COMMAND -"},
        {"date Sat Sep 30", "this is a log in ASC format; asc2log of can-utils makes a candump log of it"},
    };
    for (const auto& [bytes, refusal] : cases) {
        EXPECT_EQ(refusalOf(bytes), refusal);
    }
}

} // namespace capture
