#include "WireBytes.h"

#include <wire/Protocol.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

using namespace wirebytes;
using wire::Kind;

namespace {

/// Every request with the byte that stands for it.
const std::vector<std::pair<Kind, uint8_t>> REQUESTS{
    {Kind::OPEN_WRITE, 1}, {Kind::OPEN_READ, 2}, {Kind::BOARD, 3},      {Kind::OFFSET, 4},  {Kind::BUS, 5},
    {Kind::MONITOR, 6},    {Kind::INJECT, 7},    {Kind::STATISTICS, 8}, {Kind::ADDRESS, 9},
};

} // namespace

TEST(ProtocolTest, RequestIsMagicVersionKindAndText)
{
    for (const auto& [kind, byte] : REQUESTS) {
        const Bytes packet = joined({{'V', 'Q', 1, byte}, textBytes("a text")});
        EXPECT_EQ(wire::encodeRequest({.kind = kind, .text = "a text"}), packet);
        const auto request = wire::decodeRequest(packet);
        ASSERT_TRUE(request) << int{byte};
        EXPECT_EQ(request->kind, kind);
        EXPECT_EQ(request->text, "a text");
    }
}

TEST(ProtocolTest, RequestMayHaveNoText)
{
    const auto request = wire::decodeRequest(Bytes{'V', 'Q', 1, 3});
    ASSERT_TRUE(request);
    EXPECT_EQ(request->kind, Kind::BOARD);
    EXPECT_EQ(request->text, "");
}

TEST(ProtocolTest, TextMayHoldAnyByte)
{
    const std::string text("\0\xFF\n", 3);
    EXPECT_EQ(wire::decodeRequest(wire::encodeRequest({.kind = Kind::BUS, .text = text}))->text, text);
}

TEST(ProtocolTest, RequestOf512BytesIsTaken)
{
    const Bytes packet = joined({{'V', 'Q', 1, 1}, Bytes(508, 'x')});
    ASSERT_TRUE(wire::decodeRequest(packet));
    EXPECT_EQ(wire::decodeRequest(packet)->text, std::string(508, 'x'));
}

TEST(ProtocolTest, RequestOf513BytesIsRefused)
{
    EXPECT_FALSE(wire::decodeRequest(joined({{'V', 'Q', 1, 1}, Bytes(509, 'x')})));
}

TEST(ProtocolTest, KindsThatAreNoRequestAreRefused)
{
    for (unsigned byte = 0; byte <= 0xFF; ++byte) {
        if (byte >= 1 && byte <= 9) {
            continue;
        }
        EXPECT_FALSE(wire::decodeRequest(Bytes{'V', 'Q', 1, static_cast<uint8_t>(byte)})) << byte;
    }
}

TEST(ProtocolTest, PacketShorterThanItsHeaderIsNothing)
{
    for (const Bytes& packet : {Bytes{}, Bytes{'V'}, Bytes{'V', 'Q'}, Bytes{'V', 'Q', 1}}) {
        EXPECT_FALSE(wire::versionOf(packet)) << packet.size();
        EXPECT_FALSE(wire::decodeRequest(packet)) << packet.size();
        EXPECT_FALSE(wire::decodeReply(packet)) << packet.size();
        EXPECT_FALSE(wire::decodeFault(packet)) << packet.size();
        EXPECT_FALSE(wire::isFinish(packet)) << packet.size();
    }
}

TEST(ProtocolTest, OtherMagicIsNothing)
{
    EXPECT_FALSE(wire::versionOf(Bytes{'v', 'Q', 1, 3}));
    EXPECT_FALSE(wire::versionOf(Bytes{'V', 'q', 1, 3}));
    EXPECT_FALSE(wire::decodeRequest(Bytes{'Q', 'V', 1, 3}));
}

TEST(ProtocolTest, OtherVersionIsToldAndRefused)
{
    for (const uint8_t version : {uint8_t{0}, uint8_t{2}, uint8_t{255}}) {
        EXPECT_EQ(wire::versionOf(Bytes{'V', 'Q', version, 3}), version);
        EXPECT_FALSE(wire::decodeRequest(Bytes{'V', 'Q', version, 3}));
        EXPECT_FALSE(wire::decodeReply(Bytes{'V', 'Q', version, 0x80, 0, 0, 0, 0}));
        EXPECT_FALSE(wire::decodeFault(Bytes{'V', 'Q', version, 0x40, 0, 0, 0, 5}));
        EXPECT_FALSE(wire::isFinish(Bytes{'V', 'Q', version, 0x3F}));
    }
}

TEST(ProtocolTest, ReplyIsErrorNumberAndBody)
{
    const Bytes packet = hex("56 51 01 80 00 00 01 02 AA BB");
    EXPECT_EQ(wire::encodeReply({.errorNumber = 258, .body = {0xAA, 0xBB}}), packet);
    const auto reply = wire::decodeReply(packet);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->errorNumber, 258);
    EXPECT_EQ(reply->body, (Bytes{0xAA, 0xBB}));
}

TEST(ProtocolTest, ReplyWithoutErrorNumberIsNone)
{
    EXPECT_FALSE(wire::decodeReply(hex("56 51 01 80 00 00 00")));
    EXPECT_TRUE(wire::decodeReply(hex("56 51 01 80 00 00 00 00")));
}

TEST(ProtocolTest, ReplyLongerThan512BytesIsNone)
{
    const Bytes start = hex("56 51 01 80 00 00 00 00");
    EXPECT_TRUE(wire::decodeReply(joined({start, Bytes(504, 0)})));
    EXPECT_FALSE(wire::decodeReply(joined({start, Bytes(505, 0)})));
}

TEST(ProtocolTest, FaultIsItsErrorNumber)
{
    EXPECT_EQ(wire::encodeFault(EIO), hex("56 51 01 40 00 00 00 05"));
    EXPECT_EQ(wire::decodeFault(hex("56 51 01 40 00 00 00 05")), EIO);
}

TEST(ProtocolTest, FaultOfAnotherLengthIsNone)
{
    EXPECT_FALSE(wire::decodeFault(hex("56 51 01 40 00 00 05")));
    EXPECT_FALSE(wire::decodeFault(hex("56 51 01 40 00 00 00 05 00")));
}

TEST(ProtocolTest, FinishHasNoBody)
{
    EXPECT_EQ(wire::encodeFinish(), hex("56 51 01 3F"));
    EXPECT_TRUE(wire::isFinish(hex("56 51 01 3F")));
    EXPECT_FALSE(wire::isFinish(hex("56 51 01 3F 00")));
}

TEST(ProtocolTest, BoardHasNineBytes)
{
    const wire::Board board{.boardType = 112, .deviceCode = 0x01020304, .canFdDevice = true};
    const Bytes body = hex("00 00 00 70 01 02 03 04 01");
    EXPECT_EQ(wire::encodeBoard(board), body);
    EXPECT_EQ(wire::decodeBoard(body), board);
    EXPECT_FALSE(wire::decodeBoard(Bytes(8, 0)));
    EXPECT_FALSE(wire::decodeBoard(Bytes(10, 0)));
}

TEST(ProtocolTest, AnythingButZeroIsACanFdDevice)
{
    EXPECT_FALSE(wire::decodeBoard(hex("00 00 00 10 00 00 00 00 00"))->canFdDevice);
    EXPECT_TRUE(wire::decodeBoard(hex("00 00 00 10 00 00 00 00 02"))->canFdDevice);
}

TEST(ProtocolTest, OffsetHasEightBytes)
{
    EXPECT_EQ(wire::encodeOffset(0x0102030405060708), hex("01 02 03 04 05 06 07 08"));
    EXPECT_EQ(wire::decodeOffset(hex("01 02 03 04 05 06 07 08")), 0x0102030405060708U);
    EXPECT_FALSE(wire::decodeOffset(Bytes(7, 0)));
    EXPECT_FALSE(wire::decodeOffset(Bytes(9, 0)));
}
