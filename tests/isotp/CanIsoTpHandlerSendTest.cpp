#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/SleepCalls.h>

namespace {

const IsoTpEvent WAIT_FOR_SOME_FRAME = warningEvent("can't process send queue, wait for some frame");
const IsoTpEvent WAIT_FOR_FC = warningEvent("can't process send queue, wait for FC frame");
const IsoTpEvent TX_FAILED = errorEvent(7, "error while processing data to send");

class CanIsoTpHandlerSendTest : public IsoTpTest
{
protected:
    CanIsoTpHandlerSendTest() { SleepCalls::instance().sleeps.clear(); }

    void useExtendedAddressing()
    {
        sut.extAddressLength = 1;
        sut.extAddress = 0xA5;
    }

    /// Queues a message, sends its first frame and grants everything.
    void sendAll(const Bytes& payload)
    {
        EXPECT_TRUE(send(payload));
        carryOut();
        if (expectation() == Handler::EXPECT_FC) {
            const uint8_t address = sut.extAddressLength;
            Bytes flowControl = address != 0 ? Bytes{0xA5, 0x30, 0, 0} : Bytes{0x30, 0, 0};
            flowControl.resize(sut.useMinimalDlc != 0 ? 3U + address : 8U);
            peerSends(flowControl);
            carryOut();
        }
    }
};

TEST_F(CanIsoTpHandlerSendTest, SevenBytesGoOutAsOneSingleFrame)
{
    sendAll(counting(7));
    EXPECT_EQ(sentFrames(), (Frames{{0x07, 1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerSendTest, OneByteIsPadded)
{
    sendAll({0xAB});
    EXPECT_EQ(sentFrames(), Frames{padded({0x01, 0xAB})});
}

TEST_F(CanIsoTpHandlerSendTest, EightBytesGoOutAsFirstAndConsecutiveFrame)
{
    sendAll(counting(8));
    EXPECT_EQ(sentFrames(), (Frames{{0x10, 0x08, 1, 2, 3, 4, 5, 6}, padded({0x21, 7, 8})}));
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerSendTest, ExtendedAddressingTakesOneByteOfEveryFrame)
{
    useExtendedAddressing();
    sendAll(counting(6));
    sendAll(counting(7));
    EXPECT_EQ(
        sentFrames(),
        (Frames{{0xA5, 0x06, 1, 2, 3, 4, 5, 6}, {0xA5, 0x10, 0x07, 1, 2, 3, 4, 5}, padded({0xA5, 0x21, 6, 7})}));
}

TEST_F(CanIsoTpHandlerSendTest, MinimalDlcSendsNoPadding)
{
    sut.useMinimalDlc = 1;
    sendAll(counting(2));
    sendAll(counting(9));
    EXPECT_EQ(sentFrames(), (Frames{{0x02, 1, 2}, {0x10, 0x09, 1, 2, 3, 4, 5, 6}, {0x21, 7, 8, 9}}));
}

TEST_F(CanIsoTpHandlerSendTest, MinimalDlcAndExtendedAddressingCombine)
{
    sut.useMinimalDlc = 1;
    useExtendedAddressing();
    sendAll(counting(2));
    sendAll(counting(8));
    EXPECT_EQ(sentFrames(), (Frames{{0xA5, 0x02, 1, 2}, {0xA5, 0x10, 0x08, 1, 2, 3, 4, 5}, {0xA5, 0x21, 6, 7, 8}}));
}

TEST_F(CanIsoTpHandlerSendTest, LargestMessageIsOneFirstAnd585ConsecutiveFrames)
{
    const Bytes payload = counting(4095);
    sendAll(payload);
    const Frames frames = sentFrames();
    ASSERT_EQ(frames.size(), 586U);
    EXPECT_EQ(frames[0], (Bytes{0x1F, 0xFF, 1, 2, 3, 4, 5, 6}));
    Bytes received(frames[0].begin() + 2, frames[0].end());
    for (size_t i = 1; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i][0], 0x20 + i % 16) << i;
        received.insert(received.end(), frames[i].begin() + 1, frames[i].end());
    }
    received.resize(4095);
    EXPECT_EQ(received, payload);
}

TEST_F(CanIsoTpHandlerSendTest, FramesCarryWhatTheTransmitterNeeds)
{
    sendAll({0xAB});
    ASSERT_EQ(transmitter.frames.count(), 1U);
    const CANExtTraceMessage frame = transmitter.frames.all()[0];
    EXPECT_EQ(frame.msgId, 11);
    EXPECT_EQ(frame.channel, CHANNEL);
    EXPECT_EQ(frame.frame, CAN_FRAME_DATA);
    EXPECT_EQ(frame.stateErr, CAN_STATE_OK);
    EXPECT_EQ(frame.type, CAN_STANDARD);
    EXPECT_EQ(frame.canId, TX_ID);
    EXPECT_LT(frame.time, 86'400'000'000U);
    EXPECT_TRUE(transmitter.useOSync);
}

TEST_F(CanIsoTpHandlerSendTest, IdentifierAndTypeAreThoseOfTheCall)
{
    const Bytes payload = counting(8);
    EXPECT_TRUE(sut.send(0x18DA10F1, CAN_EXTENDED, payload.data(), payload.size()));
    carryOut();
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    ASSERT_EQ(transmitter.frames.count(), 2U);
    for (const CANExtTraceMessage& frame : transmitter.frames.all()) {
        EXPECT_EQ(frame.canId, 0x18DA10F1U);
        EXPECT_EQ(frame.type, CAN_EXTENDED);
    }
}

TEST_F(CanIsoTpHandlerSendTest, MessageObjectBringsItsIdentifierAndType)
{
    const CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, 0, counting(3), 0x123456,
                                           CAN_EXTENDED);
    EXPECT_TRUE(sut.send(&message));
    carryOut();
    ASSERT_EQ(transmitter.frames.count(), 1U);
    EXPECT_EQ(transmitter.frames.all()[0].canId, 0x123456U);
    EXPECT_EQ(transmitter.frames.all()[0].type, CAN_EXTENDED);
    EXPECT_EQ(sentFrames(), Frames{padded({0x03, 1, 2, 3})});
}

TEST_F(CanIsoTpHandlerSendTest, NullMessageIsRefused)
{
    EXPECT_FALSE(sut.send(nullptr));
}

TEST_F(CanIsoTpHandlerSendTest, Bytes4096AreRefusedWithoutTouchingTheState)
{
    send(counting(3));
    const Bytes payload = counting(4096);
    CapturedOutput output;
    EXPECT_FALSE(send(payload));
    EXPECT_EQ(output.err(), "[ERROR] CANIsoTpThread::send: data size is too big\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_FALSE(sut.sendQueueEmpty());
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerSendTest, MessageObjectOf4096BytesIsRefused)
{
    const CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, 0, counting(4096), TX_ID,
                                           CAN_STANDARD);
    CapturedOutput output;
    EXPECT_FALSE(sut.send(&message));
    EXPECT_EQ(output.err(), "[ERROR] CANIsoTpThread::send: message it's too long\n");
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerSendTest, EmptyPayloadAborts)
{
    CapturedOutput output;
    EXPECT_FALSE(send({}));
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = 0\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = error while processing data to send\n");
    EXPECT_EQ(events(), Events{TX_FAILED});
}

TEST_F(CanIsoTpHandlerSendTest, PreparingTooMuchAborts)
{
    const Bytes payload = counting(4096);
    CapturedOutput output;
    EXPECT_FALSE(sut.prepareData(TX_ID, CAN_STANDARD, payload.data(), payload.size()));
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = 4096\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = error while processing data to send\n");
    EXPECT_EQ(events(), Events{TX_FAILED});
}

TEST_F(CanIsoTpHandlerSendTest, PreparingBeyondTheIntegerRangeAborts)
{
    const uint8_t byte = 0; // never read
    CapturedOutput output;
    EXPECT_FALSE(sut.prepareData(TX_ID, CAN_STANDARD, &byte, 0x1'0000'0010UL));
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = 2147483647\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = error while processing data to send\n");
}

TEST_F(CanIsoTpHandlerSendTest, SecondMessageWaitsForTheFirst)
{
    send(counting(8));
    carryOut();
    send({0xAB});
    EXPECT_EQ(events(), Events{WAIT_FOR_SOME_FRAME});
    carryOut();
    EXPECT_EQ(sentFrames().size(), 1U);
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(sentFrames(), (Frames{{0x10, 0x08, 1, 2, 3, 4, 5, 6}, padded({0x21, 7, 8}), padded({0x01, 0xAB})}));
    EXPECT_EQ(events(), Events{WAIT_FOR_SOME_FRAME});
}

TEST_F(CanIsoTpHandlerSendTest, EveryMessageQueuedDuringATransferFollows)
{
    send(counting(8));
    carryOut();
    for (uint8_t i = 1; i <= 5; ++i) {
        send({i});
    }
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(sentFrames().size(), 7U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerSendTest, CommandWhileFlowControlIsDueWarns)
{
    send(counting(8));
    carryOut();
    sut.pushThread('s');
    carryOut();
    EXPECT_EQ(events(), Events{WAIT_FOR_FC});
    EXPECT_EQ(sentFrames().size(), 1U);
}

TEST_F(CanIsoTpHandlerSendTest, CommandWithAnEmptyQueueDoesNothing)
{
    CapturedOutput output;
    sut.pushThread('s');
    carryOut();
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerSendTest, MessageQueuedWhileReceivingGoesOutAfterTheReception)
{
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    send({0xAB});
    sut.pushThread('s'); // the message stays where it is
    carryOut();
    EXPECT_EQ(sentFrames(), Frames{padded({0x30, 0, 0})});
    peerSendsPadded({0x21, 7, 8});
    carryOut();
    EXPECT_EQ(sentFrames(), (Frames{padded({0x30, 0, 0}), padded({0x01, 0xAB})}));
    EXPECT_EQ(events(), (Events{WAIT_FOR_SOME_FRAME, messageEvent(counting(8))}));
}

TEST_F(CanIsoTpHandlerSendTest, SingleFrameStepsAreTold)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    send(counting(3));
    carryOut();
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::prepareData: create a single frame...\n"
                            "[DBEUG] CanIsoTpThread::pushThread: cmd = s\n"
                            "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
                            "[DEBUG] CanIsoTpHandler::processSendQueue: send a SF...\n"
                            "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n"
                            "[DEBUG] CanIsoTpHandler::deleteFirstMessage\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerSendTest, SegmentedStepsAreTold)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    send(counting(20));
    carryOut();
    peerSendsPadded({0x30, 0, 0xF5});
    carryOut();
    EXPECT_EQ(output.out(),
              "[DEBUG] CanIsoTpHandler::prepareData: create a frist frame...\n"
              "[DEBUG] CanIsoTpThread::prepareData: create a consecutive frame...\n"
              "[DEBUG] CanIsoTpThread::prepareData: create a consecutive frame...\n"
              "[DBEUG] CanIsoTpThread::pushThread: cmd = s\n"
              "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
              "[DEBUG] CanIsoTpHandler::processSendQueue: send a FF...\n"
              "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n"
              "[DEBUG] CanIsoTpHandler::vqpBusProxyCb: receive channel=2; id=0x7e8; type=standard; length=8; "
              "data= 30 00 f5 00 00 00 00 00\n"
              "[DEBUG] CanIsoTpHandler::checkFlowControlFrame:  0x000007e8 8  0x48 0x00 0x245 0x00 0x00 0x00 0x00 "
              "0x00\n"
              "[DEBUG] CanIsoTpHandler::checkFlowControlFrame: status = 0x0 bs = 0x0 st = 0xf5\n"
              "[DEBUG] CanIsoTpHandler::checkFlowControlFrame: receive 'continue to send'\n"
              "[DBEUG] CanIsoTpThread::pushThread: cmd = s\n"
              "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
              "[DEBUG] CanIsoTpHandler::processSendQueue: try to send a CF...\n"
              "[DEBUG] CanIsoTpHandler::processSendQueue: send a CF...\n"
              "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n"
              "[DEBUG] CanIsoTpHandler::sleepSeparationTime: sleep for 500 usec\n"
              "[DEBUG] CanIsoTpHandler::processSendQueue: send a CF...\n"
              "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n"
              "[DEBUG] CanIsoTpHandler::processSendQueue: sent segmented message complete\n"
              "[DEBUG] CanIsoTpHandler::deleteFirstMessage\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerSendTest, FailedTransmissionOfASingleFrameAborts)
{
    transmitter.failFrom = 0;
    send(counting(3));
    send(counting(3));
    CapturedOutput output;
    carryOut();
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::sendCANMessage: can't send\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = error while processing data to send\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(events(), Events{TX_FAILED});
    EXPECT_EQ(sentFrames().size(), 1U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerSendTest, FailedTransmissionOfAFirstFrameAborts)
{
    transmitter.failFrom = 0;
    send(counting(20));
    carryOut();
    EXPECT_EQ(events(), Events{TX_FAILED});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

class FailingBurstFrameTest : public CanIsoTpHandlerSendTest, public testing::WithParamInterface<int>
{
};

TEST_P(FailingBurstFrameTest, AbortsOnceAndEndsTheBurst)
{
    transmitter.failFrom = GetParam();
    sendAll(counting(60)); // first and eight consecutive frames
    EXPECT_EQ(events(), Events{TX_FAILED});
    EXPECT_EQ(sentFrames().size(), static_cast<size_t>(GetParam()) + 1);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
    transmitter.failFrom = -1;
    sendAll({0xAB});
    EXPECT_EQ(sentFrames().back(), padded({0x01, 0xAB}));
}

INSTANTIATE_TEST_SUITE_P(EveryConsecutiveFrame, FailingBurstFrameTest, testing::Range(1, 9));

TEST_F(CanIsoTpHandlerSendTest, SendingOneFrameAloneAbortsOnFailure)
{
    sut.sendCANMessage(rawFrame({0x01, 0xAB}, 0x55));
    EXPECT_EQ(sentFrames(), (Frames{{0x01, 0xAB}}));
    transmitter.failFrom = 1;
    sut.sendCANMessage(rawFrame({0x01, 0xAB}, 0x55));
    EXPECT_EQ(events(), Events{TX_FAILED});
}

TEST_F(CanIsoTpHandlerSendTest, OversizedFrameIsCutToEightBytes)
{
    Handler::rawCANMsg_t frame = rawFrame({1, 2, 3, 4, 5, 6, 7, 8});
    frame.dlc = 200;
    sut.sendCANMessage(frame);
    EXPECT_EQ(sentFrames(), (Frames{{1, 2, 3, 4, 5, 6, 7, 8}}));
}

TEST_F(CanIsoTpHandlerSendTest, OwnFlowControlUsesTheSendIdentifierWhateverTypeIsNamed)
{
    sut.sendFlowControl(CAN_EXTENDED, Handler::FS_WAIT);
    ASSERT_EQ(transmitter.frames.count(), 1U);
    EXPECT_EQ(transmitter.frames.all()[0].canId, TX_ID);
    EXPECT_EQ(transmitter.frames.all()[0].type, CAN_STANDARD);
    EXPECT_EQ(sentFrames(), Frames{padded({0x31, 0, 127})}); // 127: no flow control has been seen yet
}

class SeparationTimeTest : public CanIsoTpHandlerSendTest, public testing::WithParamInterface<int>
{
protected:
    SleepCalls& calls = SleepCalls::instance();

    static useconds_t expectedUs(int st)
    {
        if (st >= 1 && st <= 0x7F) {
            return static_cast<useconds_t>(st) * 1000;
        }
        if (st >= 0xF1 && st <= 0xF9) {
            return static_cast<useconds_t>(st - 0xF0) * 100;
        }
        return 127;
    }
};

TEST_P(SeparationTimeTest, IsSleptBetweenConsecutiveFrames)
{
    const int st = GetParam();
    send(counting(27)); // three consecutive frames
    carryOut();
    peerSendsPadded({0x30, 0, static_cast<uint8_t>(st)});
    carryOut();
    EXPECT_EQ(sentFrames().size(), 4U);
    EXPECT_EQ(calls.sleeps.all(), st == 0 ? std::vector<useconds_t>{} : std::vector<useconds_t>(2, expectedUs(st)));
}

INSTANTIATE_TEST_SUITE_P(EveryByte, SeparationTimeTest, testing::Range(0, 256));

TEST_F(CanIsoTpHandlerSendTest, NamedSeparationTimesAreSlept)
{
    for (const auto& [st, sleepUs] : std::vector<std::pair<uint8_t, useconds_t>>{
             {0xF5, 500}, {0xFA, 127}, {0x0A, 10'000}, {0x7F, 127'000}, {0x80, 127}, {0xF0, 127}, {0xF9, 900}}) {
        sendAll(counting(3));
        SleepCalls::instance().sleeps.clear();
        send(counting(20));
        carryOut();
        peerSendsPadded({0x30, 0, st});
        carryOut();
        EXPECT_EQ(SleepCalls::instance().sleeps.all(), std::vector<useconds_t>{sleepUs}) << +st;
    }
}

TEST_F(CanIsoTpHandlerSendTest, SleepOperationUsesTheCurrentSeparationTime)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    sut.sleepSeparationTime();
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::sleepSeparationTime: sleep for 127000 usec\n");
    EXPECT_EQ(SleepCalls::instance().sleeps.all(), std::vector<useconds_t>{127'000});
}

} // namespace
