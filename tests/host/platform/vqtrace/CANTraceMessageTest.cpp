#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/VQException.h>

#include <gtest/gtest.h>
#include <support/TextOf.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

std::array<unsigned char, 256> ascending()
{
    std::array<unsigned char, 256> bytes{};
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

CANExtTraceMessage frameOf(cantype_t type, unsigned int id, unsigned char length, canframe_t frame = CAN_FRAME_TX)
{
    return CANExtTraceMessage(11, 0, 3, frame, CAN_STATE_OK, type, length, id, ascending().data());
}

Bytes serialised(const MessageBase& message)
{
    Bytes out;
    message.createByteArray(out, true, false);
    return out;
}

bool isZeroFrom(const CANTraceMessageBase& message, size_t first)
{
    return std::all_of(message.data + first, message.data + 64, [](uint8_t byte) { return byte == 0; });
}

} // namespace

TEST(CANTraceMessageTest, ConstructorTakesItsArgumentsInOrder)
{
    const auto payload = ascending();
    const CANTraceMessageBase sut(11, 77, 5, CAN_FRAME_TX, static_cast<canstaterr_t>(9), CAN_FD_EXTENDED, 3,
                                  0x1ABCDEF0, payload.data());

    EXPECT_EQ(sut.msgId, 11);
    EXPECT_EQ(sut.time, 77U);
    EXPECT_EQ(sut.channel, 5);
    EXPECT_EQ(sut.frame, CAN_FRAME_TX);
    EXPECT_EQ(sut.stateErr, 9);
    EXPECT_EQ(sut.type, CAN_FD_EXTENDED);
    EXPECT_EQ(sut.length, 3);
    EXPECT_EQ(sut.canId, 0x1ABCDEF0U);
    EXPECT_EQ(sut.data[0], 1);
    EXPECT_EQ(sut.data[2], 3);
    EXPECT_TRUE(isZeroFrom(sut, 3));
}

TEST(CANTraceMessageTest, LengthAboveSixtyFourCountsAsSixtyFour)
{
    const CANExtTraceMessage sut = frameOf(CAN_FD_STANDARD, 1, 200);

    EXPECT_EQ(sut.length, 64);
    EXPECT_EQ(sut.data[63], 64);
}

TEST(CANTraceMessageTest, LengthSixtyFourAndSixtyFiveAreTheLimit)
{
    EXPECT_EQ(frameOf(CAN_FD_STANDARD, 1, 64).length, 64);
    EXPECT_EQ(frameOf(CAN_FD_STANDARD, 1, 65).length, 64);
    EXPECT_EQ(frameOf(CAN_FD_STANDARD, 1, 255).length, 64);
}

TEST(CANTraceMessageTest, FrameKindOneHasNoPayloadWhateverTheLength)
{
    for (const uint8_t length : std::vector<uint8_t>{0, 8, 64, 200, 255}) {
        const CANExtTraceMessage sut = frameOf(CAN_STANDARD, 1, length, CAN_FRAME_REMOTE);
        EXPECT_EQ(sut.length, 0) << unsigned{length};
        EXPECT_TRUE(isZeroFrom(sut, 0)) << unsigned{length};
    }
}

TEST(CANTraceMessageTest, PayloadPointerMayBeNullWhenNothingIsCopied)
{
    const CANExtTraceMessage empty(11, 0, 0, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 0, 1, nullptr);
    const CANExtTraceMessage remote(11, 0, 0, CAN_FRAME_REMOTE, CAN_STATE_OK, CAN_STANDARD, 8, 1, nullptr);

    EXPECT_EQ(empty.length, 0);
    EXPECT_EQ(remote.length, 0);
}

TEST(CANTraceMessageTest, IdentifierIsMaskedByTheType)
{
    EXPECT_EQ(frameOf(CAN_STANDARD, 0xFFFFFFFF, 0).canId, 0x7FFU);
    EXPECT_EQ(frameOf(CAN_EXTENDED, 0xFFFFFFFF, 0).canId, 0x1FFFFFFFU);
    EXPECT_EQ(frameOf(CAN_FD_STANDARD, 0xFFFFFFFF, 0).canId, 0x7FFU);
    EXPECT_EQ(frameOf(CAN_FD_EXTENDED, 0xFFFFFFFF, 0).canId, 0x1FFFFFFFU);
    EXPECT_EQ(frameOf(static_cast<cantype_t>(5), 0xFFFFFFFF, 0).canId, 0x7FFU);
}

TEST(CANTraceMessageTest, RecordOfAStandardFrame)
{
    CANExtTraceMessage sut = frameOf(CAN_STANDARD, 0x123, 2);
    sut.time = 0x0102030405060708;

    EXPECT_EQ(serialised(sut),
              (Bytes{0, 25, 0, 11, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 3, 2, 0, 0, 0x00, 0x00, 1, 0x23, 2, 1, 2}));
}

TEST(CANTraceMessageTest, RecordOfAnExtendedFrameHasBitThirtyOneSet)
{
    const Bytes record = serialised(frameOf(CAN_EXTENDED, 0x1ABCDEF0, 0));

    EXPECT_EQ(record, (Bytes{0, 23, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 2, 0, 1, 0x9A, 0xBC, 0xDE, 0xF0, 0}));
}

TEST(CANTraceMessageTest, RecordOfAFullFdFrameHasEightySevenBytes)
{
    const Bytes record = serialised(frameOf(CAN_FD_EXTENDED, 1, 64));

    ASSERT_EQ(record.size(), 87U);
    EXPECT_EQ(record[1], 87);
    EXPECT_EQ(record[17], 3);
    EXPECT_EQ(record[18], 0x80);
    EXPECT_EQ(record[22], 64);
    EXPECT_EQ(record[23], 1);
    EXPECT_EQ(record[86], 64);
}

TEST(CANTraceMessageTest, ValuesAboveAByteAreWrittenAs255)
{
    CANExtTraceMessage sut = frameOf(static_cast<cantype_t>(256), 1, 0);
    sut.frame = static_cast<canframe_t>(1000);

    const Bytes record = serialised(sut);

    EXPECT_EQ(record[15], 255);
    EXPECT_EQ(record[17], 255);
}

TEST(CANTraceMessageTest, RecordCarriesTheMessageIdentifier)
{
    CANExtTraceMessage sut = frameOf(CAN_STANDARD, 1, 0);
    sut.msgId = 0xABCD;

    const Bytes record = serialised(sut);

    EXPECT_EQ(record[2], 0xAB);
    EXPECT_EQ(record[3], 0xCD);
}

TEST(CANTraceMessageTest, LengthThatWasSetTooLargeIsWrittenAsSixtyFour)
{
    CANExtTraceMessage sut = frameOf(CAN_FD_STANDARD, 1, 64);
    sut.length = 255;

    EXPECT_EQ(serialised(sut).size(), 87U);
}

TEST(CANTraceMessageTest, AppendedRecordsFollowEachOther)
{
    Bytes out;
    frameOf(CAN_STANDARD, 1, 1).createByteArray(out, true, true);
    frameOf(CAN_STANDARD, 2, 0).createByteArray(out, true, true);

    EXPECT_EQ(out, (Bytes{0, 24, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 2, 0, 0, 0, 0, 0, 1, 1, 1, //
                          0, 23, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 2, 0, 0, 0, 0, 0, 2, 0}));
}

TEST(CANTraceMessageTest, OneAllocationServesTheWholeRecord)
{
    Bytes out;

    frameOf(CAN_STANDARD, 1, 8).createByteArray(out, true, false);

    EXPECT_EQ(out.capacity(), 87U);
}

TEST(CANTraceMessageTest, TextNamesTheFields)
{
    EXPECT_EQ(textOf(frameOf(CAN_EXTENDED, 0x1ABCDEF0, 3)),
              "channel=3; id=0x1abcdef0; type=extended; length=3; data= 01 02 03");
}

TEST(CANTraceMessageTest, TextOfAFrameWithoutPayloadEndsBehindData)
{
    EXPECT_EQ(textOf(frameOf(CAN_STANDARD, 0, 0)), "channel=3; id=0x0; type=standard; length=0; data=");
}

TEST(CANTraceMessageTest, BaseReferenceWritesTheSameText)
{
    const CANExtTraceMessage message = frameOf(CAN_FD_STANDARD, 0x7FF, 1);
    const MessageBase& sut = message;

    EXPECT_EQ(textOf(sut), "channel=3; id=0x7ff; type=FD standard; length=1; data= 01");
}

TEST(CANTraceMessageTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(frameOf(CAN_STANDARD, 0xAB, 1)),
              "channel=3; id=0xab; type=standard; length=1; data= 01 kept");
}

TEST(CANTraceMessageTest, CloneKeepsDynamicTypeAndFields)
{
    const CANExtTraceMessage sut = frameOf(CAN_EXTENDED, 0x12345, 4);

    const auto clone = sut.clone();

    ASSERT_NE(dynamic_cast<CANExtTraceMessage*>(clone.get()), nullptr);
    EXPECT_EQ(serialised(*clone), serialised(sut));
}

TEST(CANTraceMessageTest, CloneOfTheBaseIsNoExtMessage)
{
    const CANTraceMessageBase sut(11, 0, 3, CAN_FRAME_TX, CAN_STATE_OK, CAN_STANDARD, 1, 1, ascending().data());

    const auto clone = sut.clone();

    EXPECT_NE(dynamic_cast<CANTraceMessageBase*>(clone.get()), nullptr);
    EXPECT_EQ(dynamic_cast<CANExtTraceMessage*>(clone.get()), nullptr);
    EXPECT_EQ(serialised(*clone), serialised(sut));
}

TEST(CANTraceMessageTest, CopyDataFillsABufferOfExactlyTheLength)
{
    const CANExtTraceMessage sut = frameOf(CAN_STANDARD, 1, 8);
    uint8_t buffer[9] = {};

    EXPECT_EQ(sut.copyData(buffer, 8), 8U);

    EXPECT_EQ(buffer[7], 8);
    EXPECT_EQ(buffer[8], 0);
}

TEST(CANTraceMessageTest, CopyDataIntoATooSmallBufferThrowsAndCopiesNothing)
{
    const CANExtTraceMessage sut = frameOf(CAN_FD_STANDARD, 1, 9);
    uint8_t buffer[8] = {};

    try {
        sut.copyData(buffer, 8);
        FAIL();
    } catch (const BufferMismatchException& exception) {
        EXPECT_STREQ(exception.what(), "CANTraceMessageBase too long");
    }
    EXPECT_EQ(buffer[0], 0);
}

TEST(CANTraceMessageTest, CopyDataOfAnEmptyFrameNeedsNoBuffer)
{
    EXPECT_EQ(frameOf(CAN_STANDARD, 1, 0).copyData(nullptr, 0), 0U);
}

TEST(CANTraceMessageTest, CopyDataNeverReadsBehindThePayload)
{
    CANExtTraceMessage sut = frameOf(CAN_FD_STANDARD, 1, 64);
    sut.length = 65;
    uint8_t buffer[255];

    EXPECT_THROW(sut.copyData(buffer, sizeof(buffer)), BufferMismatchException);
}
