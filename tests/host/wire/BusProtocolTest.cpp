#include "WireBytes.h"

#include <wire/BusProtocol.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using namespace wirebytes;

namespace {

/// The shortest record.
const Bytes RECORD = hex("00 0E 00 63 00 00 00 00 00 00 00 00 00 07");

/// A MESSAGE packet put together by hand.
Bytes packetOf(std::string_view source, std::string_view destination, const Bytes& record)
{
    return joined({{'V', 'Q', 1, 0x20, static_cast<uint8_t>(source.size())},
                   textBytes(source),
                   {static_cast<uint8_t>(destination.size())},
                   textBytes(destination),
                   record});
}

bool isMessage(const Bytes& packet)
{
    return wire::decodeBusMessage(packet).has_value();
}

bool canSend(std::string_view source, std::string_view destination, const Bytes& record)
{
    Bytes packet{0xEE};
    const bool appended =
        wire::appendBusMessage(packet, {.source = source, .destination = destination, .record = record});
    EXPECT_EQ(appended, packet.size() > 1) << "nothing is appended if it cannot be sent";
    EXPECT_EQ(packet[0], 0xEE);
    return appended;
}

} // namespace

TEST(BusProtocolTest, MessageIsTwoNamesAndARecord)
{
    const Bytes packet = packetOf("me", "ecu", RECORD);
    Bytes encoded;
    ASSERT_TRUE(wire::appendBusMessage(encoded, {.source = "me", .destination = "ecu", .record = RECORD}));
    EXPECT_EQ(encoded, packet);
    const auto message = wire::decodeBusMessage(packet);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->source, "me");
    EXPECT_EQ(message->destination, "ecu");
    EXPECT_EQ(bytesOf(message->record), RECORD);
}

TEST(BusProtocolTest, SourceMayBeEmptyOrHave255Bytes)
{
    for (const std::string& source : {std::string(), std::string(255, 's')}) {
        EXPECT_TRUE(canSend(source, "ecu", RECORD)) << source.size();
        EXPECT_EQ(wire::decodeBusMessage(packetOf(source, "ecu", RECORD))->source, source);
    }
}

TEST(BusProtocolTest, SourceOf256BytesIsRefused)
{
    EXPECT_FALSE(canSend(std::string(256, 's'), "ecu", RECORD));
}

TEST(BusProtocolTest, DestinationHas1To255Bytes)
{
    EXPECT_FALSE(canSend("me", "", RECORD));
    EXPECT_TRUE(canSend("me", "e", RECORD));
    EXPECT_TRUE(canSend("me", std::string(255, 'd'), RECORD));
    EXPECT_FALSE(canSend("me", std::string(256, 'd'), RECORD));
    EXPECT_FALSE(isMessage(packetOf("me", "", RECORD)));
    EXPECT_TRUE(isMessage(packetOf("me", std::string(255, 'd'), RECORD)));
}

TEST(BusProtocolTest, DestinationWithNulIsRefused)
{
    EXPECT_FALSE(isMessage(packetOf("me", std::string_view("e\0u", 3), RECORD)));
}

TEST(BusProtocolTest, RecordThatDoesNotFillThePacketIsRefused)
{
    EXPECT_FALSE(isMessage(packetOf("me", "ecu", joined({RECORD, {0}}))));
    EXPECT_FALSE(isMessage(packetOf("me", "ecu", Bytes(RECORD.begin(), RECORD.end() - 1))));
    EXPECT_FALSE(isMessage(packetOf("me", "ecu", {})));
    EXPECT_FALSE(canSend("me", "ecu", joined({RECORD, {0}})));
    EXPECT_FALSE(canSend("me", "ecu", {}));
}

TEST(BusProtocolTest, LongestPacketIsAsLongAsItIsSaid)
{
    Bytes record(65535, 0);
    record[0] = 0xFF;
    record[1] = 0xFF;
    record[3] = 99;
    Bytes packet;
    const std::string name(255, 'n');
    ASSERT_TRUE(wire::appendBusMessage(packet, {.source = name, .destination = name, .record = record}));
    EXPECT_EQ(packet.size(), wire::BUS_PACKET_MAX_BYTES);
    EXPECT_TRUE(isMessage(packet));
}

TEST(BusProtocolTest, MessageCutAnywhereIsNone)
{
    const Bytes packet = packetOf("me", "ecu", RECORD);
    for (size_t size = 0; size < packet.size(); ++size) {
        EXPECT_FALSE(wire::decodeBusMessage(std::span(packet).first(size))) << size;
    }
}

TEST(BusProtocolTest, OtherKindOrVersionIsNoMessage)
{
    Bytes packet = packetOf("me", "ecu", RECORD);
    packet[3] = 0x21;
    EXPECT_FALSE(isMessage(packet));
    packet[3] = 0x20;
    packet[2] = 2;
    EXPECT_FALSE(isMessage(packet));
}

TEST(BusProtocolTest, DroppedIsACount)
{
    const Bytes packet = hex("56 51 01 21 00 00 00 01 00 00 00 02");
    EXPECT_EQ(wire::encodeBusDropped(0x1'0000'0002), packet);
    EXPECT_EQ(wire::decodeBusDropped(packet), 0x1'0000'0002U);
    EXPECT_FALSE(wire::decodeBusDropped(std::span(packet).first(11)));
    EXPECT_FALSE(wire::decodeBusDropped(joined({packet, {0}})));
    EXPECT_FALSE(wire::decodeBusDropped(packetOf("me", "ecu", RECORD)));
}

TEST(BusProtocolTest, BusNamesHave1To255BytesWithoutNul)
{
    EXPECT_FALSE(wire::isBusName(""));
    EXPECT_TRUE(wire::isBusName("a"));
    EXPECT_TRUE(wire::isBusName(std::string(255, 'n')));
    EXPECT_FALSE(wire::isBusName(std::string(256, 'n')));
    EXPECT_FALSE(wire::isBusName(std::string_view("a\0b", 3)));
}
