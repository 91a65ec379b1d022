#include "WireBytes.h"

#include <wire/MessageRecord.h>

#include <gtest/gtest.h>

#include <string>

using namespace wirebytes;

namespace {

const Bytes COMMAND = hex("00 12 00 80 00 00 00 00 00 00 00 00 00 09 00 13 61 62");
const Bytes TRANSPORT = hex("00 18 80 14 00 00 00 00 00 00 00 00 00 09 00 00 07 E8 00 00 00 02 3E 80");

} // namespace

TEST(MessageRecordTest, CommandIsANumberAndAText)
{
    Bytes bytes;
    wire::encodeSystemRecord(wire::SYSTEM_RECORD_TYPE, 9, 19, "ab", bytes, 0);
    EXPECT_EQ(bytes, COMMAND);
    const auto record = wire::decodeSystemRecord(COMMAND);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->timestampUs, 9U);
    EXPECT_EQ(record->command, 19);
    EXPECT_EQ(record->text, "ab");
    EXPECT_EQ(wire::timestampOf(COMMAND.data()), 9U);
}

TEST(MessageRecordTest, TransportMessageIsIdentifierTypeAndPayload)
{
    Bytes bytes;
    wire::encodeTransportRecord(wire::TRANSPORT_RECORD_TYPE, 9, 0x7E8, 2, Bytes{0x3E, 0x80}, bytes, 0);
    EXPECT_EQ(bytes, TRANSPORT);
    const auto record = wire::decodeTransportRecord(TRANSPORT);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->timestampUs, 9U);
    EXPECT_EQ(record->id, 0x7E8U);
    EXPECT_EQ(record->type, 2U);
    EXPECT_EQ(record->payload, (Bytes{0x3E, 0x80}));
}

TEST(MessageRecordTest, EncodersReplaceWhatStandsBehindTheOffset)
{
    Bytes bytes{1, 2, 3, 4};
    wire::encodeSystemRecord(wire::SYSTEM_RECORD_TYPE, 9, 19, "ab", bytes, 2);
    EXPECT_EQ(bytes, joined({{1, 2}, COMMAND}));
    wire::encodeTransportRecord(wire::TRANSPORT_RECORD_TYPE, 9, 0x7E8, 2, Bytes{0x3E, 0x80}, bytes, 1);
    EXPECT_EQ(bytes, joined({{1}, TRANSPORT}));
}

TEST(MessageRecordTest, RecordCutAnywhereOrWithMoreBehindItIsNone)
{
    for (size_t size = 0; size < COMMAND.size(); ++size) {
        EXPECT_FALSE(wire::decodeSystemRecord(std::span(COMMAND).first(size))) << size;
    }
    for (size_t size = 0; size < TRANSPORT.size(); ++size) {
        EXPECT_FALSE(wire::decodeTransportRecord(std::span(TRANSPORT).first(size))) << size;
    }
    EXPECT_FALSE(wire::decodeSystemRecord(joined({COMMAND, {0}})));
    EXPECT_FALSE(wire::decodeTransportRecord(joined({TRANSPORT, {0}})));
}

TEST(MessageRecordTest, RecordTooShortForItsTypeIsNone)
{
    EXPECT_FALSE(wire::decodeSystemRecord(hex("00 0F 00 80 00 00 00 00 00 00 00 00 00 09 00")));
    EXPECT_TRUE(wire::decodeSystemRecord(hex("00 10 00 80 00 00 00 00 00 00 00 00 00 09 00 13")));
    EXPECT_FALSE(
        wire::decodeTransportRecord(hex("00 15 80 14 00 00 00 00 00 00 00 00 00 09 00 00 07 E8 00 00 00")));
    EXPECT_TRUE(
        wire::decodeTransportRecord(hex("00 16 80 14 00 00 00 00 00 00 00 00 00 09 00 00 07 E8 00 00 00 02")));
}

TEST(MessageRecordTest, OtherTypesAreNone)
{
    EXPECT_FALSE(wire::decodeSystemRecord(TRANSPORT));
    EXPECT_FALSE(wire::decodeTransportRecord(COMMAND));
}

TEST(MessageRecordTest, MessageLongerThanARecordSaysTheLongestLengthAndIsRefused)
{
    Bytes bytes;
    wire::encodeSystemRecord(wire::SYSTEM_RECORD_TYPE, 0, 19, std::string(65535 - 15, 'x'), bytes, 0);
    EXPECT_EQ(bytes.size(), 65536U);
    EXPECT_EQ(bytes[0], 0xFF);
    EXPECT_EQ(bytes[1], 0xFF);
    EXPECT_FALSE(wire::decodeSystemRecord(bytes));
}
