#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>

namespace {

/// The codec reads its settings only; bus and worker play no part.
class CanIsoTpHandlerCodecTest : public IsoTpTest
{
protected:
    void useExtendedAddressing()
    {
        sut.extAddressLength = 1;
        sut.extAddress = 0xEE;
    }

    static Bytes dataOf(const Handler::rawCANMsg_t& frame) { return {frame.data, frame.data + 8}; }

    /// Full of what a setter has to clear.
    Handler::rawCANMsg_t frame = rawFrame({1, 2, 3, 4, 5, 6, 7, 8});
};

TEST_F(CanIsoTpHandlerCodecTest, FirstDataByteFollowsAddressing)
{
    EXPECT_EQ(sut.getFirstDataByte(Handler::FRAME_SF), 1U);
    EXPECT_EQ(sut.getFirstDataByte(Handler::FRAME_CF), 1U);
    EXPECT_EQ(sut.getFirstDataByte(Handler::FRAME_FF), 2U);
    useExtendedAddressing();
    EXPECT_EQ(sut.getFirstDataByte(Handler::FRAME_SF), 2U);
    EXPECT_EQ(sut.getFirstDataByte(Handler::FRAME_CF), 2U);
    EXPECT_EQ(sut.getFirstDataByte(Handler::FRAME_FF), 3U);
}

TEST_F(CanIsoTpHandlerCodecTest, FirstDataByteOfOtherTypesIsAllOnes)
{
    for (const uint32_t type : {3U, 4U, 254U, 255U, 256U}) {
        EXPECT_EQ(sut.getFirstDataByte(static_cast<Handler::frameType_t>(type)), 0xFFFFFFFFU) << type;
    }
}

TEST_F(CanIsoTpHandlerCodecTest, SingleFrameHeaderCountsPayload)
{
    EXPECT_TRUE(sut.setSingleFrameHeader(frame, 7));
    EXPECT_EQ(frame.dlc, 8);
    EXPECT_EQ(dataOf(frame), padded({0x07}));
    EXPECT_EQ(frame.id, RX_ID);
}

TEST_F(CanIsoTpHandlerCodecTest, SingleFrameHeaderLeadsWithAddress)
{
    useExtendedAddressing();
    EXPECT_TRUE(sut.setSingleFrameHeader(frame, 6));
    EXPECT_EQ(dataOf(frame), padded({0xEE, 0x06}));
}

TEST_F(CanIsoTpHandlerCodecTest, SingleFrameOfLengthZeroIsRefused)
{
    CapturedOutput output;
    EXPECT_FALSE(sut.setSingleFrameHeader(frame, 0));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = 0\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(dataOf(frame), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(CanIsoTpHandlerCodecTest, SingleFrameOfLengthEightIsRefused)
{
    CapturedOutput output;
    EXPECT_FALSE(sut.setSingleFrameHeader(frame, 8));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = 8\n");
    EXPECT_EQ(dataOf(frame), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(CanIsoTpHandlerCodecTest, SingleFrameOfLengthSevenIsRefusedWithExtendedAddressing)
{
    useExtendedAddressing();
    CapturedOutput output;
    EXPECT_FALSE(sut.setSingleFrameHeader(frame, 7));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = 7\n");
}

TEST_F(CanIsoTpHandlerCodecTest, SingleFrameOfNegativeLengthIsRefused)
{
    CapturedOutput output;
    EXPECT_FALSE(sut.setSingleFrameHeader(frame, -1));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = -1\n");
}

TEST_F(CanIsoTpHandlerCodecTest, FirstFrameHeaderHoldsTheLargestLength)
{
    EXPECT_TRUE(sut.setFirstFrameHeader(frame, 4095));
    EXPECT_EQ(frame.dlc, 8);
    EXPECT_EQ(dataOf(frame), padded({0x1F, 0xFF}));
}

TEST_F(CanIsoTpHandlerCodecTest, FirstFrameHeaderSplitsTheLength)
{
    useExtendedAddressing();
    EXPECT_TRUE(sut.setFirstFrameHeader(frame, 0x123));
    EXPECT_EQ(dataOf(frame), padded({0xEE, 0x11, 0x23}));
}

TEST_F(CanIsoTpHandlerCodecTest, FirstFrameOfLength4096IsRefused)
{
    CapturedOutput output;
    EXPECT_FALSE(sut.setFirstFrameHeader(frame, 4096));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = 4096\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(dataOf(frame), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(CanIsoTpHandlerCodecTest, FirstFrameOfLengthSevenIsRefused)
{
    CapturedOutput output;
    EXPECT_FALSE(sut.setFirstFrameHeader(frame, 7));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = 7\n");
}

TEST_F(CanIsoTpHandlerCodecTest, FirstFrameOfLengthSevenIsTakenWithExtendedAddressing)
{
    useExtendedAddressing();
    EXPECT_TRUE(sut.setFirstFrameHeader(frame, 7));
    CapturedOutput output;
    EXPECT_FALSE(sut.setFirstFrameHeader(frame, 6));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = 6\n");
}

TEST_F(CanIsoTpHandlerCodecTest, FirstFrameIsPaddedInMinimalModeToo)
{
    sut.useMinimalDlc = 1;
    EXPECT_TRUE(sut.setFirstFrameHeader(frame, 8));
    EXPECT_EQ(frame.dlc, 8);
}

TEST_F(CanIsoTpHandlerCodecTest, SequenceNumberWrapsAtSixteen)
{
    sut.setConsecutiveFrameHeader(frame, 7, 15);
    EXPECT_EQ(dataOf(frame), padded({0x2F}));
    sut.setConsecutiveFrameHeader(frame, 7, 16);
    EXPECT_EQ(dataOf(frame), padded({0x20}));
    sut.setConsecutiveFrameHeader(frame, 7, 17);
    EXPECT_EQ(dataOf(frame), padded({0x21}));
}

TEST_F(CanIsoTpHandlerCodecTest, NegativeSequenceNumberIsMaskedAfterDivision)
{
    sut.setConsecutiveFrameHeader(frame, 7, -1); // remainder -1
    EXPECT_EQ(frame.data[0], 0x2F);
    sut.setConsecutiveFrameHeader(frame, 7, -18); // remainder -2
    EXPECT_EQ(frame.data[0], 0x2E);
}

TEST_F(CanIsoTpHandlerCodecTest, FlowControlFrameHoldsItsThreeBytes)
{
    frame.type = CAN_EXTENDED;
    sut.setFlowControlFrame(frame, Handler::FS_OVERFLOW, 0x12, 0xF3);
    EXPECT_EQ(frame.dlc, 8);
    EXPECT_EQ(dataOf(frame), padded({0x32, 0x12, 0xF3}));
    EXPECT_EQ(frame.id, RX_ID);
    EXPECT_EQ(frame.type, CAN_EXTENDED);
}

TEST_F(CanIsoTpHandlerCodecTest, FlowStatusIsReducedToItsNibble)
{
    sut.setFlowControlFrame(frame, Handler::FS_INVALID, 0, 0);
    EXPECT_EQ(frame.data[0], 0x3F);
}

TEST_F(CanIsoTpHandlerCodecTest, EveryControlByteIsOfOneKindOrNone)
{
    for (const uint8_t address : {uint8_t{0}, uint8_t{1}}) {
        sut.extAddressLength = address;
        for (int control = 0; control <= 0xFF; ++control) {
            Handler::rawCANMsg_t probe = rawFrame({0xA5, 0xA5});
            probe.data[address] = static_cast<uint8_t>(control);
            EXPECT_EQ(sut.isSingleFrame(probe), control < 0x10) << control;
            EXPECT_EQ(sut.isFirstFrame(probe), control >= 0x10 && control < 0x20) << control;
            EXPECT_EQ(sut.isConsecutiveFrame(probe), control >= 0x20 && control < 0x30) << control;
            EXPECT_EQ(sut.isFlowControlFrame(probe), control >= 0x30 && control < 0x40) << control;
        }
    }
}

TEST_F(CanIsoTpHandlerCodecTest, KindsAreReadFromFramesWithoutData)
{
    EXPECT_TRUE(sut.isSingleFrame(rawFrame({})));
}

TEST_F(CanIsoTpHandlerCodecTest, FlowStatusIsRead)
{
    EXPECT_EQ(sut.getFrameFlowStatus(rawFrame({0x30, 0, 0})), Handler::FS_CTS);
    EXPECT_EQ(sut.getFrameFlowStatus(rawFrame({0x31, 0, 0})), Handler::FS_WAIT);
    EXPECT_EQ(sut.getFrameFlowStatus(rawFrame({0x32, 0, 0})), Handler::FS_OVERFLOW);
}

class UnknownFlowStatusTest : public CanIsoTpHandlerCodecTest, public testing::WithParamInterface<int>
{
};

TEST_P(UnknownFlowStatusTest, YieldsInvalidAndNamesTheNibble)
{
    constexpr std::string_view DIGITS = "0123456789abcdef";
    CapturedOutput output;
    EXPECT_EQ(sut.getFrameFlowStatus(rawFrame({static_cast<uint8_t>(0x30 | GetParam()), 0, 0})), 255U);
    EXPECT_EQ(output.err(), std::string("[ERROR] CanIsoTpHandler::getFrameFlowStatus: unknown flow status = 0x") +
                                DIGITS[static_cast<size_t>(GetParam())] + "\n");
    EXPECT_EQ(output.out(), "");
}

INSTANTIATE_TEST_SUITE_P(Nibbles, UnknownFlowStatusTest, testing::Range(3, 16));

TEST_F(CanIsoTpHandlerCodecTest, FlowStatusOfAnotherFrameIsInvalid)
{
    CapturedOutput output;
    EXPECT_EQ(sut.getFrameFlowStatus(rawFrame({0x21})), 255U);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::getFrameFlowStatus: invalid frame\n");
}

TEST_F(CanIsoTpHandlerCodecTest, BlockSizeAndSeparationTimeAreRead)
{
    EXPECT_EQ(sut.getFrameBlockSize(rawFrame({0x30, 0x12, 0xF3})), 0x12);
    EXPECT_EQ(sut.getFrameSeparationTime(rawFrame({0x30, 0x12, 0xF3})), 0xF3);
    useExtendedAddressing();
    EXPECT_EQ(sut.getFrameBlockSize(rawFrame({0xEE, 0x30, 0x12, 0xF3})), 0x12);
    EXPECT_EQ(sut.getFrameSeparationTime(rawFrame({0xEE, 0x30, 0x12, 0xF3})), 0xF3);
}

TEST_F(CanIsoTpHandlerCodecTest, BlockSizeOfAnotherFrameIsZero)
{
    CapturedOutput output;
    EXPECT_EQ(sut.getFrameBlockSize(rawFrame({0x10, 0x12, 0xF3})), 0);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::getFrameBlockSize: invalid frame\n");
}

TEST_F(CanIsoTpHandlerCodecTest, SeparationTimeOfAnotherFrameIsAllOnes)
{
    CapturedOutput output;
    EXPECT_EQ(sut.getFrameSeparationTime(rawFrame({0x40, 0x12, 0x03})), 0xFF);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::getFrameSeparationTime: invalid frame\n");
}

TEST_F(CanIsoTpHandlerCodecTest, DataLengthIsReadFromSingleAndFirstFrame)
{
    EXPECT_EQ(sut.getFrameDataLength(rawFrame({0x05, 0xFF})), 5);
    EXPECT_EQ(sut.getFrameDataLength(rawFrame({0x1F, 0xFE})), 0xFFE);
    useExtendedAddressing();
    EXPECT_EQ(sut.getFrameDataLength(rawFrame({0xEE, 0x05})), 5);
    EXPECT_EQ(sut.getFrameDataLength(rawFrame({0xEE, 0x12, 0x34})), 0x234);
}

TEST_F(CanIsoTpHandlerCodecTest, DataLengthOfAnotherFrameNamesGetFrameLength)
{
    CapturedOutput output;
    EXPECT_EQ(sut.getFrameDataLength(rawFrame({0x21, 0x34})), -1);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::getFrameLength: invalid frame\n");
}

TEST_F(CanIsoTpHandlerCodecTest, SequenceNumberIsRead)
{
    EXPECT_EQ(sut.getFrameSequenceNo(rawFrame({0x2B})), 11);
}

TEST_F(CanIsoTpHandlerCodecTest, SequenceNumberOfAnotherFrameIsInvalid)
{
    CapturedOutput output;
    EXPECT_EQ(sut.getFrameSequenceNo(rawFrame({0x0B})), -1);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::getFrameSequenceNo: invalid frame\n");
}

TEST_F(CanIsoTpHandlerCodecTest, SettingOutOfRangeStaysInsideTheFrame)
{
    sut.extAddressLength = 255; // counts as 1
    EXPECT_TRUE(sut.isFlowControlFrame(rawFrame({0xEE, 0x30})));
    EXPECT_TRUE(sut.setSingleFrameHeader(frame, 1));
    EXPECT_EQ(dataOf(frame), padded({0x00, 0x01}));
}

/// Every length a builder accepts or refuses, for all four settings.
class FrameLengthTest : public CanIsoTpHandlerCodecTest,
                        public testing::WithParamInterface<std::tuple<uint8_t, uint8_t>>
{
protected:
    FrameLengthTest()
    {
        sut.extAddressLength = std::get<0>(GetParam());
        sut.extAddress = 0xA5;
        sut.useMinimalDlc = std::get<1>(GetParam());
    }
    int address() const { return std::get<0>(GetParam()); }
    bool minimal() const { return std::get<1>(GetParam()) != 0; }
    void expectRestIsZero(int used) const
    {
        if (address() != 0) {
            EXPECT_EQ(frame.data[0], 0xA5);
        }
        for (int i = used; i < 8; ++i) {
            EXPECT_EQ(frame.data[i], 0);
        }
    }
};

TEST_P(FrameLengthTest, SingleFrame)
{
    const CapturedOutput output;
    for (int length = -2; length <= 300; ++length) {
        frame = rawFrame({1, 2, 3, 4, 5, 6, 7, 8});
        const bool right = length >= 1 && length <= 7 - address();
        ASSERT_EQ(sut.setSingleFrameHeader(frame, length), right) << length;
        if (right) {
            EXPECT_EQ(frame.dlc, minimal() ? address() + 1 + length : 8) << length;
            EXPECT_EQ(frame.data[address()], length);
            expectRestIsZero(address() + 1);
        }
    }
}

TEST_P(FrameLengthTest, FirstFrame)
{
    const CapturedOutput output;
    for (int length = -2; length <= 5000; ++length) {
        frame = rawFrame({1, 2, 3, 4, 5, 6, 7, 8});
        const bool right = length >= 8 - address() && length <= 4095;
        ASSERT_EQ(sut.setFirstFrameHeader(frame, length), right) << length;
        if (right) {
            EXPECT_EQ(frame.dlc, 8);
            EXPECT_EQ(frame.data[address()] * 256 + frame.data[address() + 1], 0x1000 + length);
            expectRestIsZero(address() + 2);
        }
    }
}

TEST_P(FrameLengthTest, ConsecutiveFrame)
{
    for (int length = 1; length <= 7 - address(); ++length) {
        for (int sequence = 0; sequence < 40; ++sequence) {
            frame = rawFrame({1, 2, 3, 4, 5, 6, 7, 8});
            sut.setConsecutiveFrameHeader(frame, length, sequence);
            EXPECT_EQ(frame.dlc, minimal() ? address() + 1 + length : 8);
            EXPECT_EQ(frame.data[address()], 0x20 + sequence % 16);
            expectRestIsZero(address() + 1);
        }
    }
}

TEST_P(FrameLengthTest, FlowControl)
{
    sut.setFlowControlFrame(frame, Handler::FS_WAIT, 0x11, 0x22);
    EXPECT_EQ(frame.dlc, minimal() ? address() + 3 : 8);
    EXPECT_EQ(frame.data[address()], 0x31);
    EXPECT_EQ(frame.data[address() + 1], 0x11);
    EXPECT_EQ(frame.data[address() + 2], 0x22);
    expectRestIsZero(address() + 3);
}

INSTANTIATE_TEST_SUITE_P(AddressingAndDlcMode, FrameLengthTest,
                         testing::Combine(testing::Values(uint8_t{0}, uint8_t{1}),
                                          testing::Values(uint8_t{0}, uint8_t{1})));

} // namespace
