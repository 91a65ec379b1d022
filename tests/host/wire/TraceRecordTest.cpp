#include "WireBytes.h"

#include <wire/TraceRecord.h>

#include <gtest/gtest.h>

#include <array>
#include <vector>

using namespace wirebytes;
using wire::RecordError;

namespace {

/// A standard data frame with two payload bytes.
const Bytes FRAME = hex("00 19 00 0B 00 00 01 02 03 04 05 06 07 08 05 01 02 00 00 00 01 23 02 AA BB");

constexpr size_t LENGTH = 1;
constexpr size_t TYPE = 3;
constexpr size_t ZERO = 5;
constexpr size_t PAYLOAD_LENGTH = 22;

/// FRAME with one byte replaced.
Bytes changed(size_t offset, uint8_t value)
{
    Bytes bytes = FRAME;
    bytes[offset] = value;
    return bytes;
}

Bytes encoded(const wire::CanRecord& record)
{
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> out;
    return bytesOf(std::span(out).first(wire::encode(record, out)));
}

} // namespace

TEST(TraceRecordTest, EveryFieldHasItsPlace)
{
    wire::CanRecord record{.timestampUs = 0x0102030405060708,
                           .channel = 5,
                           .frameKind = 1,
                           .stateError = 2,
                           .type = 0,
                           .id = 0x123,
                           .lengthBytes = 2};
    record.payload[0] = 0xAA;
    record.payload[1] = 0xBB;
    EXPECT_EQ(encoded(record), FRAME);

    const auto decoded = wire::decodeCanRecord(FRAME);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->timestampUs, record.timestampUs);
    EXPECT_EQ(decoded->channel, 5);
    EXPECT_EQ(decoded->frameKind, 1);
    EXPECT_EQ(decoded->stateError, 2);
    EXPECT_EQ(decoded->type, 0);
    EXPECT_EQ(decoded->id, 0x123U);
    EXPECT_EQ(bytesOf(decoded->data()), (Bytes{0xAA, 0xBB}));
}

TEST(TraceRecordTest, ExtendedTypesCarryBit31)
{
    const std::vector<Bytes> words{hex("1F FF FF FF"), hex("9F FF FF FF"), hex("1F FF FF FF"), hex("9F FF FF FF")};
    for (uint8_t type = 0; type < 4; ++type) {
        const Bytes bytes = encoded({.type = type, .id = 0x1FFFFFFF});
        EXPECT_EQ(Bytes(bytes.begin() + 18, bytes.begin() + 22), words[type]) << int{type};
        EXPECT_EQ(wire::decodeCanRecord(bytes)->id, 0x1FFFFFFFU) << int{type};
    }
}

TEST(TraceRecordTest, BitsAboveTheIdentifierDoNotTravel)
{
    EXPECT_EQ(encoded({.type = 0, .id = 0xFFFFFFFF}), encoded({.type = 0, .id = 0x1FFFFFFF}));
    EXPECT_EQ(wire::decodeCanRecord(changed(18, 0xE0))->id, 0x123U);
}

TEST(TraceRecordTest, FramesOf0And64BytesAreTheShortestAndTheLongest)
{
    EXPECT_EQ(encoded({.lengthBytes = 0}).size(), wire::CAN_RECORD_MIN_BYTES);
    const Bytes longest = encoded({.type = 2, .lengthBytes = 64});
    EXPECT_EQ(longest.size(), wire::CAN_RECORD_MAX_BYTES);
    EXPECT_EQ(wire::decodeCanRecord(longest)->data().size(), 64U);
}

TEST(TraceRecordTest, LengthAbove64CountsAs64)
{
    EXPECT_EQ(encoded({.lengthBytes = 65}), encoded({.lengthBytes = 64}));
    EXPECT_EQ(encoded({.lengthBytes = 255}), encoded({.lengthBytes = 64}));
}

TEST(TraceRecordTest, WholeRecordHasNoError)
{
    EXPECT_EQ(wire::checkRecord(FRAME), RecordError::NONE);
    EXPECT_EQ(wire::checkRecord(joined({FRAME, {0xFF}})), RecordError::NONE) << "what stands behind does not count";
    EXPECT_EQ(wire::wholeCanRecordBytes(FRAME.data(), FRAME.size()), FRAME.size());
}

TEST(TraceRecordTest, RecordCutAnywhereIsIncomplete)
{
    for (size_t size = 0; size < FRAME.size(); ++size) {
        EXPECT_EQ(wire::checkRecord(std::span(FRAME).first(size)), RecordError::INCOMPLETE) << size;
        EXPECT_EQ(wire::wholeCanRecordBytes(FRAME.data(), size), 0U) << size;
        EXPECT_FALSE(wire::decodeCanRecord(std::span(FRAME).first(size))) << size;
    }
}

TEST(TraceRecordTest, LengthBelow14IsTooShort)
{
    EXPECT_EQ(wire::checkRecord(changed(LENGTH, 13)), RecordError::TOO_SHORT);
    EXPECT_EQ(wire::checkRecord(changed(LENGTH, 0)), RecordError::TOO_SHORT);
}

TEST(TraceRecordTest, NonzeroFieldIsNoRecord)
{
    EXPECT_EQ(wire::checkRecord(changed(ZERO, 1)), RecordError::NONZERO_FIELD);
    EXPECT_EQ(wire::checkRecord(changed(ZERO - 1, 1)), RecordError::NONZERO_FIELD);
}

TEST(TraceRecordTest, CanFrameWhosePayloadDoesNotFillItIsAMismatch)
{
    for (const Bytes& bytes : {changed(LENGTH, 14), changed(LENGTH, 22), changed(PAYLOAD_LENGTH, 1),
                               changed(PAYLOAD_LENGTH, 3), changed(LENGTH, 24)}) {
        EXPECT_EQ(wire::checkRecord(bytes), RecordError::LENGTH_MISMATCH);
        EXPECT_EQ(wire::wholeCanRecordBytes(bytes.data(), bytes.size()), 0U);
        EXPECT_FALSE(wire::decodeCanRecord(bytes));
    }
}

TEST(TraceRecordTest, CanFrameOf65BytesIsTooLongAtOnce)
{
    EXPECT_EQ(wire::checkRecord(changed(LENGTH, 88)), RecordError::PAYLOAD_TOO_LONG) << "without waiting for it";
}

TEST(TraceRecordTest, OtherTypesHave14To65535Bytes)
{
    EXPECT_EQ(wire::checkRecord(hex("00 0E 00 0C 00 00 00 00 00 00 00 00 00 07")), RecordError::NONE);
    Bytes longest(65535, 0);
    longest[0] = 0xFF;
    longest[1] = 0xFF;
    EXPECT_EQ(wire::checkRecord(longest), RecordError::NONE);
    longest.pop_back();
    EXPECT_EQ(wire::checkRecord(longest), RecordError::INCOMPLETE);
}

TEST(TraceRecordTest, OtherTypesAreNoCanFrame)
{
    const Bytes other = changed(TYPE, 12);
    EXPECT_EQ(wire::checkRecord(other), RecordError::NONE);
    EXPECT_EQ(wire::wholeCanRecordBytes(other.data(), other.size()), 0U);
    EXPECT_FALSE(wire::decodeCanRecord(other));
}

TEST(TraceRecordTest, CanFrameWithMoreBehindItIsNotExactlyOne)
{
    EXPECT_FALSE(wire::decodeCanRecord(joined({FRAME, {0}})));
}

TEST(TraceRecordTest, HeaderIsThreeBigEndianWords)
{
    const wire::RecordHeader header{.lengthBytes = 0x0102, .type = 0x0304, .zero = 0x0506};
    Bytes bytes(6);
    wire::writeHeader(bytes.data(), header);
    EXPECT_EQ(bytes, (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(wire::readHeader(bytes.data()), header);
}

TEST(TraceRecordTest, EveryErrorHasItsText)
{
    EXPECT_STREQ(wire::textOf(RecordError::NONE), "no error");
    EXPECT_STREQ(wire::textOf(RecordError::INCOMPLETE), "the record is incomplete");
    EXPECT_STREQ(wire::textOf(RecordError::TOO_SHORT), "the length field is below 14");
    EXPECT_STREQ(wire::textOf(RecordError::NONZERO_FIELD), "the field behind the type is not zero");
    EXPECT_STREQ(wire::textOf(RecordError::LENGTH_MISMATCH), "the payload does not fill the CAN frame record");
    EXPECT_STREQ(wire::textOf(RecordError::PAYLOAD_TOO_LONG), "the CAN frame has more than 64 payload bytes");
}
