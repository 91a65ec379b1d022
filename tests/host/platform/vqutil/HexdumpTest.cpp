#include <vqutil/hexdump.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> ascending(size_t count, unsigned char first = 0)
{
    std::vector<unsigned char> bytes(count);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(first + i);
    }
    return bytes;
}

std::string dump(const std::vector<unsigned char>& bytes, const std::string& prefix, unsigned long bytesPerLine,
                 hexdumpPrefix_t kind, bool showText)
{
    std::ostringstream stream;
    hexdump(stream, bytes.data(), bytes.data() + bytes.size(), prefix, bytesPerLine, kind, showText);
    return stream.str();
}

} // namespace

TEST(HexdumpTest, EmptyRangePrintsNothing)
{
    EXPECT_EQ(dump({}, "prefix ", 16, HEXDUMP_PREFIX_TEXT_OFFSET, true), "");
}

TEST(HexdumpTest, NullRangePrintsNothing)
{
    std::ostringstream stream;

    hexdump(stream, nullptr, nullptr, "prefix ", 16, HEXDUMP_PREFIX_TEXT, true);

    EXPECT_EQ(stream.str(), "");
}

TEST(HexdumpTest, OneShortLineIsNotFilledUp)
{
    EXPECT_EQ(dump({0x00, 0x41, 0xFF}, "[INFO] ETH::send: ", 16, HEXDUMP_PREFIX_TEXT, true),
              "[INFO] ETH::send:  00 41 ff  .A.\n");
}

TEST(HexdumpTest, FullLineHasNoEmptyLineBehindIt)
{
    EXPECT_EQ(dump(ascending(4, 0x61), "", 4, HEXDUMP_PREFIX_TEXT, true), " 61 62 63 64  abcd\n");
}

TEST(HexdumpTest, CharactersOfAShortLastLineStandBelowTheOthers)
{
    EXPECT_EQ(dump(ascending(6, 0x61), ">", 4, HEXDUMP_PREFIX_TEXT, true), "> 61 62 63 64  abcd\n"
                                                                           "> 65 66        ef\n");
}

TEST(HexdumpTest, WithoutTextALineEndsBehindItsLastNumber)
{
    EXPECT_EQ(dump(ascending(5, 0x61), ">", 4, HEXDUMP_PREFIX_TEXT, false), "> 61 62 63 64\n"
                                                                            "> 65\n");
}

TEST(HexdumpTest, OffsetOfTheFirstByteFollowsThePrefix)
{
    EXPECT_EQ(dump(ascending(18), "x ", 16, HEXDUMP_PREFIX_TEXT_OFFSET, false),
              "x 00000000:  00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n"
              "x 00000010:  10 11\n");
}

TEST(HexdumpTest, ZeroBytesPerLineCountAsOne)
{
    EXPECT_EQ(dump({1, 2}, "", 0, HEXDUMP_PREFIX_TEXT, false), " 01\n 02\n");
}

TEST(HexdumpTest, OnlyPrintableAsciiIsShownAsItself)
{
    EXPECT_EQ(dump({0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xE4}, "", 8, HEXDUMP_PREFIX_TEXT, true),
              " 1f 20 7e 7f 80 e4  . ~...\n");
}

TEST(HexdumpTest, StreamFlagsHaveNoEffectAndStay)
{
    std::ostringstream stream;
    stream << std::uppercase << std::showbase << std::hex << std::setfill('*') << std::setw(30);
    const auto flags = stream.flags();
    const unsigned char byte = 0xAB;

    hexdump(stream, &byte, &byte + 1, "", 16, HEXDUMP_PREFIX_TEXT, false);

    EXPECT_EQ(stream.str(), " ab\n");
    EXPECT_EQ(stream.flags(), flags);
    EXPECT_EQ(stream.fill(), '*');
}
