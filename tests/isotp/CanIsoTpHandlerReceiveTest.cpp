#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>

#include <vqtrace/SystemMessage.h>
#include <vqutil/VQException.h>

namespace {

const IsoTpEvent UNEXPECTED = errorEvent(1, "type of received frame != expected frame type");
const IsoTpEvent INVALID_FORMAT = errorEvent(4, "frame with invalid format was processed");
const IsoTpEvent WRONG_DLC = errorEvent(5, "DLC of received message is wrong");
const IsoTpEvent WRONG_SN = errorEvent(9, "CF sequence number is wrong");
const IsoTpEvent BUG = errorEvent(12, "this error should never happen, probably caused by a bug");

class CanIsoTpHandlerReceiveTest : public IsoTpTest
{
protected:
    /// Standard error of a frame from the peer.
    std::string errorsOf(const Bytes& frame)
    {
        CapturedOutput output;
        peerSends(frame);
        EXPECT_EQ(output.out(), "");
        return output.err();
    }
    void firstFrameOf20Bytes() { peerSends({0x10, 20, 1, 2, 3, 4, 5, 6}); }
};

TEST_F(CanIsoTpHandlerReceiveTest, PaddedSingleFrameIsDelivered)
{
    peerSends({0x03, 1, 2, 3, 0, 0, 0, 0});
    EXPECT_EQ(events(), Events{messageEvent({1, 2, 3})});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(pendingCommands(sut), "s");
}

TEST_F(CanIsoTpHandlerReceiveTest, DeliveredMessageIsComplete)
{
    Handler extended("TraceLogger", "Diagnostic", CHANNEL, 0x18DA00F1, CAN_EXTENDED, 1, CAN_STANDARD);
    extended.setCallback(callback);
    const Bytes bytes = padded({0x02, 0xAB, 0xCD});
    const CANExtTraceMessage frame = canFrame(bytes, 0x18DA00F1, CAN_EXTENDED);
    extended.vqpBusProxyCb(&frame, "", "");
    ASSERT_EQ(callback.messages.count(), 1U);
    const CANTransportTraceMessage message = callback.messages.all()[0];
    EXPECT_EQ(message.msgId, 0x8014);
    EXPECT_EQ(message.data, (Bytes{0xAB, 0xCD}));
    EXPECT_EQ(message.canId, 0x18DA00F1U);
    EXPECT_EQ(message.type, CAN_EXTENDED);
    EXPECT_LT(message.time, 86'400'000'000U);
}

TEST_F(CanIsoTpHandlerReceiveTest, FramesArriveByTheBus)
{
    const CANExtTraceMessage frame = canFrame(padded({0x01, 0xAB}));
    bus.deliver(&frame);
    EXPECT_EQ(events(), Events{messageEvent({0xAB})});
}

TEST_F(CanIsoTpHandlerReceiveTest, ShortSingleFrameIsWrongInPaddedMode)
{
    EXPECT_EQ(errorsOf({0x03, 1, 2, 3}),
              "[ERROR] CanIsoTpHandler::abortProcessing: error = DLC of received message is wrong\n");
    EXPECT_EQ(events(), Events{WRONG_DLC});
}

TEST_F(CanIsoTpHandlerReceiveTest, ShortSingleFrameIsRightWithMinimalDlc)
{
    sut.useMinimalDlc = 1;
    peerSends({0x03, 1, 2, 3});
    EXPECT_EQ(events(), Events{messageEvent({1, 2, 3})});
}

TEST_F(CanIsoTpHandlerReceiveTest, PaddedSingleFrameIsWrongWithMinimalDlc)
{
    sut.useMinimalDlc = 1;
    peerSendsPadded({0x03, 1, 2, 3});
    EXPECT_EQ(events(), Events{WRONG_DLC});
}

TEST_F(CanIsoTpHandlerReceiveTest, SingleFrameOfLengthZeroIsInvalid)
{
    EXPECT_EQ(errorsOf(padded({0x00})),
              "[ERROR] CanIsoTpHandler::abortProcessing: error = frame with invalid format was processed\n");
    EXPECT_EQ(events(), Events{INVALID_FORMAT});
}

TEST_F(CanIsoTpHandlerReceiveTest, SingleFrameOfLengthEightIsInvalid)
{
    peerSends({0x08, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(events(), Events{INVALID_FORMAT});
}

TEST_F(CanIsoTpHandlerReceiveTest, SingleFrameOfLengthSevenIsInvalidWithExtendedAddressing)
{
    sut.extAddressLength = 1;
    peerSends({0xEE, 0x06, 1, 2, 3, 4, 5, 6});
    peerSends({0xEE, 0x07, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(events(), (Events{messageEvent(counting(6)), INVALID_FORMAT}));
}

TEST_F(CanIsoTpHandlerReceiveTest, FrameWithoutDataIsAWrongSingleFrame)
{
    peerSends({});
    EXPECT_EQ(events(), Events{WRONG_DLC});
}

TEST_F(CanIsoTpHandlerReceiveTest, AddressByteIsNotCompared)
{
    sut.extAddressLength = 1;
    sut.extAddress = 0xEE;
    peerSends(padded({0x11, 0x02, 7, 8}));
    EXPECT_EQ(events(), Events{messageEvent({7, 8})});
}

TEST_F(CanIsoTpHandlerReceiveTest, TwentyBytesAreReassembled)
{
    firstFrameOf20Bytes();
    EXPECT_EQ(expectation(), Handler::EXPECT_CF);
    peerSends({0x21, 7, 8, 9, 10, 11, 12, 13});
    peerSends({0x22, 14, 15, 16, 17, 18, 19, 20});
    EXPECT_EQ(events(), Events{messageEvent(counting(20))});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(pendingCommands(sut), "iisi");
}

TEST_F(CanIsoTpHandlerReceiveTest, FirstFrameIsAnsweredWithFlowControl)
{
    firstFrameOf20Bytes();
    ASSERT_EQ(transmitter.frames.count(), 1U);
    const CANExtTraceMessage answer = transmitter.frames.all()[0];
    EXPECT_EQ(bytesOf(answer), padded({0x30, 0x00, 0x00}));
    EXPECT_EQ(answer.canId, TX_ID);
    EXPECT_EQ(answer.type, CAN_STANDARD);
    EXPECT_EQ(answer.channel, CHANNEL);
}

TEST_F(CanIsoTpHandlerReceiveTest, FlowControlIsShortWithMinimalDlc)
{
    sut.useMinimalDlc = 1;
    sut.extAddressLength = 1;
    sut.extAddress = 0xEE;
    peerSends({0x11, 0x10, 20, 1, 2, 3, 4, 5});
    EXPECT_EQ(sentFrames(), (Frames{{0xEE, 0x30, 0x00, 0x00}}));
}

TEST_F(CanIsoTpHandlerReceiveTest, SkippedSequenceNumberAborts)
{
    firstFrameOf20Bytes();
    peerSends({0x21, 7, 8, 9, 10, 11, 12, 13});
    EXPECT_EQ(errorsOf({0x23, 14, 15, 16, 17, 18, 19, 20}),
              "[ERROR] CanIsoTpHandler::abortProcessing: error = CF sequence number is wrong\n");
    EXPECT_EQ(events(), Events{WRONG_SN});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReceiveTest, SequenceStartsWithOne)
{
    firstFrameOf20Bytes();
    peerSends({0x20, 7, 8, 9, 10, 11, 12, 13});
    EXPECT_EQ(events(), Events{WRONG_SN});
}

TEST_F(CanIsoTpHandlerReceiveTest, RepeatedSequenceNumberAborts)
{
    firstFrameOf20Bytes();
    peerSends({0x21, 7, 8, 9, 10, 11, 12, 13});
    peerSends({0x21, 7, 8, 9, 10, 11, 12, 13});
    EXPECT_EQ(events(), Events{WRONG_SN});
}

TEST_F(CanIsoTpHandlerReceiveTest, LargestMessageIsDeliveredAfter585ConsecutiveFrames)
{
    const Bytes payload = counting(4095);
    peerSends({0x1F, 0xFF, 1, 2, 3, 4, 5, 6});
    for (size_t i = 1; i <= 585; ++i) {
        ASSERT_TRUE(events().empty()) << i;
        Bytes frame{static_cast<uint8_t>(0x20 + i % 16)};
        const size_t begin = 6 + 7 * (i - 1);
        const size_t end = std::min<size_t>(begin + 7, payload.size());
        frame.insert(frame.end(), payload.begin() + static_cast<long>(begin),
                     payload.begin() + static_cast<long>(end));
        peerSendsPadded(frame);
        carryOut();
    }
    EXPECT_EQ(events(), Events{messageEvent(payload)});
}

TEST_F(CanIsoTpHandlerReceiveTest, SmallestSegmentedMessages)
{
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    sut.extAddressLength = 1;
    peerSends({0xEE, 0x10, 7, 1, 2, 3, 4, 5});
    peerSendsPadded({0xEE, 0x21, 6, 7});
    EXPECT_EQ(events(), (Events{messageEvent(counting(8)), messageEvent(counting(7))}));
}

class ShortFirstFrameTest : public CanIsoTpHandlerReceiveTest,
                            public testing::WithParamInterface<std::pair<uint8_t, uint8_t>>
{
};

TEST_P(ShortFirstFrameTest, IsInvalid)
{
    const auto [address, length] = GetParam();
    sut.extAddressLength = address;
    Bytes frame(address, 0xEE);
    frame.insert(frame.end(), {0x10, length});
    peerSendsPadded(frame);
    EXPECT_EQ(events(), Events{INVALID_FORMAT});
    EXPECT_TRUE(sentFrames().empty());
}

INSTANTIATE_TEST_SUITE_P(AddressAndLength, ShortFirstFrameTest,
                         testing::Values(std::pair<uint8_t, uint8_t>{0, 0}, std::pair<uint8_t, uint8_t>{0, 6},
                                         std::pair<uint8_t, uint8_t>{0, 7}, std::pair<uint8_t, uint8_t>{1, 0},
                                         std::pair<uint8_t, uint8_t>{1, 6}));

TEST_F(CanIsoTpHandlerReceiveTest, DlcOfFirstFrameIsNotChecked)
{
    peerSends({0x10, 8, 1, 2}); // the rest of it counts as zero
    peerSendsPadded({0x21, 7, 8});
    EXPECT_EQ(events(), Events{messageEvent({1, 2, 0, 0, 0, 0, 7, 8})});
}

TEST_F(CanIsoTpHandlerReceiveTest, DlcOfLastFrameIsNotCheckedInPaddedMode)
{
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSends({0x21, 7});
    EXPECT_EQ(events(), Events{messageEvent({1, 2, 3, 4, 5, 6, 7, 0})});
}

TEST_F(CanIsoTpHandlerReceiveTest, DlcOfFullFrameIsNotChecked)
{
    sut.useMinimalDlc = 1;
    peerSends({0x10, 13, 1, 2, 3, 4, 5, 6});
    peerSends({0x21, 7});
    EXPECT_EQ(events(), Events{messageEvent({1, 2, 3, 4, 5, 6, 7, 0, 0, 0, 0, 0, 0})});
}

/// Every DLC of a single frame and of a last consecutive frame, for every length and all four settings.
class ReceivedDlcTest : public CanIsoTpHandlerReceiveTest,
                        public testing::WithParamInterface<std::tuple<uint8_t, uint8_t>>
{
protected:
    ReceivedDlcTest()
    {
        sut.extAddressLength = std::get<0>(GetParam());
        sut.useMinimalDlc = std::get<1>(GetParam());
    }
    Bytes frame(std::initializer_list<uint8_t> control, size_t dlc) const
    {
        Bytes bytes(address, 0xEE);
        bytes.insert(bytes.end(), control);
        while (bytes.size() < 8) {
            bytes.push_back(static_cast<uint8_t>(bytes.size()));
        }
        bytes.resize(dlc);
        return bytes;
    }
    const size_t address = std::get<0>(GetParam());
    const bool minimal = std::get<1>(GetParam()) != 0;
};

TEST_P(ReceivedDlcTest, SingleFrame)
{
    for (size_t length = 0; length <= 15; ++length) {
        for (size_t dlc = address + 1; dlc <= 8; ++dlc) {
            callback.events.clear();
            peerSends(frame({static_cast<uint8_t>(length)}, dlc));
            const bool rightDlc = dlc == (minimal ? address + 1 + length : 8);
            const bool rightLength = length >= 1 && length <= 7 - address;
            ASSERT_EQ(callback.events.count(), 1U);
            const IsoTpEvent event = events().front();
            if (!rightDlc) {
                EXPECT_EQ(event, WRONG_DLC) << length << " in " << dlc;
            } else if (!rightLength) {
                EXPECT_EQ(event, INVALID_FORMAT) << length << " in " << dlc;
            } else {
                EXPECT_EQ(event.message.size(), length);
            }
            carryOut();
        }
    }
}

TEST_P(ReceivedDlcTest, LastConsecutiveFrame)
{
    for (size_t rest = 1; rest <= 7 - address; ++rest) {
        for (size_t dlc = address + 1; dlc <= 8; ++dlc) {
            callback.events.clear();
            const size_t length = 6 - address + 7 - address + rest;
            peerSends(frame({0x10, static_cast<uint8_t>(length)}, 8));
            peerSends(frame({0x21}, 8));
            peerSends(frame({0x22}, dlc));
            const bool isFull = rest == 7 - address;
            const bool right = !minimal || isFull || dlc == address + 1 + rest;
            ASSERT_EQ(callback.events.count(), 1U) << rest << " in " << dlc;
            if (right) {
                EXPECT_EQ(events().front().message.size(), length) << rest << " in " << dlc;
            } else {
                EXPECT_EQ(events().front(), WRONG_DLC) << rest << " in " << dlc;
            }
            carryOut();
        }
    }
}

TEST_P(ReceivedDlcTest, FirstFrameIsTakenWithAnyDlc)
{
    for (size_t dlc = address + 2; dlc <= 8; ++dlc) {
        callback.events.clear();
        Bytes first = frame({0x10, 9}, 8);
        first.resize(dlc);
        peerSends(first);
        peerSends(frame({0x21}, minimal ? address + 4 + address : 8));
        ASSERT_EQ(callback.events.count(), 1U) << dlc;
        const Bytes message = events().front().message;
        ASSERT_EQ(message.size(), 9U) << dlc;
        // What the frame did not bring counts as zero.
        for (size_t i = 0; i < 6 - address; ++i) {
            const size_t at = address + 2 + i;
            EXPECT_EQ(message[i], at < dlc ? at : 0) << i << " in " << dlc;
        }
        carryOut();
    }
}

TEST_P(ReceivedDlcTest, FullConsecutiveFrameIsTakenWithAnyDlc)
{
    for (size_t dlc = address + 1; dlc <= 8; ++dlc) {
        callback.events.clear();
        peerSends(frame({0x10, static_cast<uint8_t>(6 - address + 7 - address)}, 8));
        peerSends(frame({0x21}, dlc));
        ASSERT_EQ(callback.events.count(), 1U) << dlc;
        EXPECT_EQ(events().front().message.size(), 13U - 2 * address) << dlc;
        carryOut();
    }
}

INSTANTIATE_TEST_SUITE_P(AddressingAndDlcMode, ReceivedDlcTest,
                         testing::Combine(testing::Values(uint8_t{0}, uint8_t{1}),
                                          testing::Values(uint8_t{0}, uint8_t{1})));

TEST_F(CanIsoTpHandlerReceiveTest, SingleFrameWhileReceivingIsUnexpected)
{
    firstFrameOf20Bytes();
    EXPECT_EQ(
        errorsOf(padded({0x01, 5})),
        "[ERROR] CanIsoTpHandler::showExpectedError: received single frame but expected consecutive frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x01 0x05 0x00 0x00 0x00 0x00 "
        "0x00 0x00\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
    EXPECT_EQ(events(), Events{UNEXPECTED});
}

TEST_F(CanIsoTpHandlerReceiveTest, FirstFrameWhileReceivingIsUnexpected)
{
    firstFrameOf20Bytes();
    EXPECT_EQ(
        errorsOf({0x10, 20, 1, 2, 3, 4, 5, 6}),
        "[ERROR] CanIsoTpHandler::showExpectedError: received first frame but expected consecutive frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x16 0x20 0x01 0x02 0x03 0x04 "
        "0x05 0x06\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
    EXPECT_EQ(events(), Events{UNEXPECTED});
}

TEST_F(CanIsoTpHandlerReceiveTest, ConsecutiveFrameWhileIdleIsUnexpected)
{
    EXPECT_EQ(
        errorsOf(padded({0x21})),
        "[ERROR] CanIsoTpHandler::showExpectedError: received consecutive frame but expected first or single "
        "frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x33 0x00 0x00 0x00 0x00 0x00 "
        "0x00 0x00\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
    EXPECT_EQ(events(), Events{UNEXPECTED});
}

TEST_F(CanIsoTpHandlerReceiveTest, FlowControlWhileReceivingIsUnexpected)
{
    firstFrameOf20Bytes();
    peerSendsPadded({0x30, 0, 0});
    EXPECT_EQ(events(), Events{UNEXPECTED});
}

TEST_F(CanIsoTpHandlerReceiveTest, SingleFrameWhileFlowControlIsDueAbortsTheTransfer)
{
    send(counting(20));
    send({0xAB}); // warns
    carryOut();
    peerSendsPadded({0x01, 5});
    carryOut();
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_EQ(sentFrames().size(), 1U);
    EXPECT_EQ(events().back(), UNEXPECTED);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReceiveTest, ConsecutiveFrameWhileFlowControlIsDueAbortsTheTransfer)
{
    send(counting(20));
    carryOut();
    EXPECT_EQ(
        errorsOf(padded({0x21})),
        "[ERROR] CanIsoTpHandler::showExpectedError: received consecutive frame but expected first or single "
        "frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x33 0x00 0x00 0x00 0x00 0x00 "
        "0x00 0x00\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
    EXPECT_EQ(events(), Events{UNEXPECTED});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReceiveTest, FirstFrameWhileFlowControlWasGrantedAbortsTheTransfer)
{
    send(counting(20));
    carryOut();
    peerSendsPadded({0x30, 0, 0}); // the burst is due
    firstFrameOf20Bytes();
    carryOut();
    EXPECT_EQ(events(), Events{UNEXPECTED});
    EXPECT_EQ(sentFrames().size(), 1U);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReceiveTest, ConsecutiveFrameAfterItsTimeHasPassedIsUnexpected)
{
    firstFrameOf20Bytes();
    sut.handleTimeout();
    peerSends({0x21, 7, 8, 9, 10, 11, 12, 13});
    EXPECT_EQ(events(), (Events{errorEvent(2, "RX timeout error"), UNEXPECTED}));
    peerSendsPadded({0x01, 5});
    EXPECT_EQ(events().back(), messageEvent({5}));
}

TEST_F(CanIsoTpHandlerReceiveTest, FirstFrameWhileFlowControlIsDueAbortsTheTransfer)
{
    send(counting(20));
    carryOut();
    firstFrameOf20Bytes();
    EXPECT_EQ(events(), Events{UNEXPECTED});
    EXPECT_EQ(sentFrames().size(), 1U);
}

TEST_F(CanIsoTpHandlerReceiveTest, FrameOfUnknownKindIsInvalid)
{
    EXPECT_EQ(
        errorsOf(padded({0x40})),
        "[ERROR] CanIsoTpHandler::handleCANData: received invalid frame\n"
        "[ERROR] CanIsoTpHandler::showExpectedError: received unknown frame but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x64 0x00 0x00 0x00 0x00 0x00 "
        "0x00 0x00\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = frame with invalid format was processed\n");
    EXPECT_EQ(events(), Events{INVALID_FORMAT});
}

TEST_F(CanIsoTpHandlerReceiveTest, AbortDropsThePartAndTheQueue)
{
    firstFrameOf20Bytes();
    send({0xAB});
    peerSendsPadded({0x40});
    carryOut();
    EXPECT_TRUE(sut.sendQueueEmpty());
    firstFrameOf20Bytes();
    peerSends({0x21, 7, 8, 9, 10, 11, 12, 13});
    peerSends({0x22, 14, 15, 16, 17, 18, 19, 20});
    EXPECT_EQ(events().back(), messageEvent(counting(20)));
}

TEST_F(CanIsoTpHandlerReceiveTest, OtherIdentifierIsIgnored)
{
    const CANExtTraceMessage frame = canFrame(padded({0x40}), RX_ID + 1);
    sut.vqpBusProxyCb(&frame, "", "");
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerReceiveTest, OtherTypeIsIgnored)
{
    firstFrameOf20Bytes();
    const CANExtTraceMessage frame = canFrame(padded({0x40}), RX_ID, CAN_EXTENDED);
    sut.vqpBusProxyCb(&frame, "", "");
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(expectation(), Handler::EXPECT_CF);
}

TEST_F(CanIsoTpHandlerReceiveTest, ChannelIsNotCompared)
{
    CANExtTraceMessage frame = canFrame(padded({0x01, 5}));
    frame.channel = CHANNEL + 1;
    sut.vqpBusProxyCb(&frame, "", "");
    EXPECT_EQ(events(), Events{messageEvent({5})});
}

TEST_F(CanIsoTpHandlerReceiveTest, ForeignFrameIsToldWithDebugLevel)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    const CANExtTraceMessage frame = canFrame({0x01, 0x05}, 0x123);
    sut.vqpBusProxyCb(&frame, "", "");
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::vqpBusProxyCb: receive channel=2; id=0x123; type=standard; "
                            "length=2; data= 01 05\n"
                            "[DEBUG] CanIsoTpHandler::vqpBusProxyCb: message has wrong id or type\n");
}

TEST_F(CanIsoTpHandlerReceiveTest, FrameAboveEightBytesThrowsAndChangesNothing)
{
    firstFrameOf20Bytes();
    const CANExtTraceMessage frame = canFrame(Bytes(9, 0x21));
    try {
        sut.vqpBusProxyCb(&frame, "", "");
        FAIL() << "no exception";
    } catch (const BufferMismatchException& failure) {
        EXPECT_STREQ(failure.what(), "CANTraceMessageBase too long");
    }
    EXPECT_EQ(expectation(), Handler::EXPECT_CF);
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerReceiveTest, LongFrameWithAnotherIdentifierOrTypeIsIgnored)
{
    const CANExtTraceMessage otherId = canFrame(Bytes(9, 0x21), RX_ID + 1);
    const CANExtTraceMessage otherType = canFrame(Bytes(64, 0x21), RX_ID, CAN_FD_STANDARD);
    EXPECT_NO_THROW(sut.vqpBusProxyCb(&otherId, "", ""));
    EXPECT_NO_THROW(sut.vqpBusProxyCb(&otherType, "", ""));
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerReceiveTest, OtherMessagesAreIgnored)
{
    const SystemMessage message(128, 0, 19, "text");
    CapturedOutput output;
    for (const int level : {0, 1, 2}) {
        sut.debugLevel = level;
        sut.vqpBusProxyCb(&message, "a", "b");
        sut.vqpBusProxyCb(nullptr, "a", "b");
    }
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerReceiveTest, OtherMessagesAreToldFromDebugLevelThreeOn)
{
    const SystemMessage message(128, 0, 19, "text");
    CapturedOutput output;
    sut.debugLevel = 3;
    sut.vqpBusProxyCb(&message, "from", "to");
    sut.vqpBusProxyCb(nullptr, "", "");
    EXPECT_EQ(output.out(), "[WARNING] CanIsoTpHandler::vqpBusProxyCb: can't cast, source = from, dest = to\n"
                            "[WARNING] CanIsoTpHandler::vqpBusProxyCb: can't cast, source = , dest = \n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerReceiveTest, ReceptionIsToldWithDebugLevel)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    sut.handleCANData(rawFrame({0x10, 8, 1, 2, 3, 4, 5, 6}));
    sut.handleCANData(rawFrame(padded({0x21, 7, 8})));
    sut.handleCANData(rawFrame(padded({0x01, 9})));
    EXPECT_EQ(
        output.out(),
        "[DEBUG] CanIsoTpHandler::checkFirstFrame:  0x000007e8 8  0x16 0x08 0x01 0x02 0x03 0x04 0x05 0x06\n"
        "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n"
        "[DBEUG] CanIsoTpThread::pushThread: cmd = i\n"
        "[DEBUG] CanIsoTpHandler::checkConsecutiveFrame:  0x000007e8 8  0x33 0x07 0x08 0x00 0x00 0x00 0x00 0x00\n"
        "[DEBUG] CanIsoTpHandler::addReceivedData: received complete transport message id=0x7e8; type=standard; "
        "length=8; data= 01 02 03 04 05 06 07 08\n"
        "[DBEUG] CanIsoTpThread::pushThread: cmd = s\n"
        "[DBEUG] CanIsoTpThread::pushThread: cmd = i\n"
        "[DEBUG] CanIsoTpHandler::checkSingleFrame:  0x000007e8 8  0x01 0x09 0x00 0x00 0x00 0x00 0x00 0x00\n"
        "[DEBUG] CanIsoTpHandler::addReceivedData: received complete transport message id=0x7e8; type=standard; "
        "length=1; data= 09\n"
        "[DBEUG] CanIsoTpThread::pushThread: cmd = s\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerReceiveTest, MoreDataThanMissingIsABugAndNotDelivered)
{
    const Bytes data = counting(3);
    CapturedOutput output;
    sut.addReceivedData(0, CAN_STANDARD, data.data(), data.size());
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::addReceivedData: bytesToReceive is negative\n"
                            "[ERROR] CanIsoTpHandler::abortProcessing: error = this error should never happen, "
                            "probably caused by a bug\n");
    EXPECT_EQ(events(), Events{BUG});
}

TEST_F(CanIsoTpHandlerReceiveTest, AddedDataCompletesAReception)
{
    firstFrameOf20Bytes();
    const Bytes data = counting(20);
    sut.addReceivedData(0, CAN_EXTENDED, data.data() + 6, 4);
    EXPECT_TRUE(events().empty());
    sut.addReceivedData(0, CAN_EXTENDED, data.data() + 10, 10);
    EXPECT_EQ(events(), Events{messageEvent(data)});
    EXPECT_EQ(callback.messages.all()[0].canId, RX_ID);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReceiveTest, FailedFlowControlAbortsTheReception)
{
    transmitter.failFrom = 0;
    EXPECT_EQ(errorsOf({0x10, 20, 1, 2, 3, 4, 5, 6}),
              "[ERROR] CanIsoTpHandler::sendCANMessage: can't send\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = error while processing data to send\n");
    EXPECT_EQ(events(), Events{errorEvent(7, "error while processing data to send")});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(pendingCommands(sut), "i"); // the abort's only
}

} // namespace
