#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/SleepCalls.h>

namespace {

/// The sequence numbers of the consecutive frames among the frames sent.
std::vector<int> sequenceNumbers(const Frames& frames)
{
    std::vector<int> numbers;
    for (const Bytes& frame : frames) {
        if ((frame[0] & 0xF0) == 0x20) {
            numbers.push_back(frame[0] & 0x0F);
        }
    }
    return numbers;
}

class CanIsoTpHandlerFlowControlTest : public IsoTpTest
{
protected:
    CanIsoTpHandlerFlowControlTest() { SleepCalls::instance().sleeps.clear(); }

    /// First frame and `count` consecutive frames are due.
    void beginTransfer(size_t count)
    {
        ASSERT_TRUE(send(counting(6 + 7 * count)));
        carryOut();
        ASSERT_EQ(expectation(), Handler::EXPECT_FC);
    }
    void grant(uint8_t blockSize)
    {
        peerSendsPadded({0x30, blockSize, 0});
        carryOut();
    }
    std::vector<int> sent() const { return sequenceNumbers(sentFrames()); }

    /// Standard error of a frame from the peer.
    std::string errorsOf(const Bytes& frame)
    {
        CapturedOutput output;
        peerSends(frame);
        EXPECT_EQ(output.out(), "");
        return output.err();
    }

    const IsoTpEvent bug = errorEvent(12, "this error should never happen, probably caused by a bug");
};

TEST_F(CanIsoTpHandlerFlowControlTest, BlockSizeZeroSendsEverything)
{
    beginTransfer(40);
    grant(0);
    EXPECT_EQ(sent().size(), 40U);
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, BlockSizeTwoSkipsTheFirstFrameOfLaterBlocks)
{
    beginTransfer(8);
    grant(2);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2}));
    EXPECT_EQ(expectation(), Handler::EXPECT_FC);
    grant(2);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2, 4, 5}));
    grant(2);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2, 4, 5, 7, 8}));
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, BlockSizeOneSendsEverySecondFrame)
{
    beginTransfer(5);
    grant(1);
    EXPECT_EQ(sent(), (std::vector<int>{1}));
    grant(1);
    EXPECT_EQ(sent(), (std::vector<int>{1, 3}));
    grant(1);
    EXPECT_EQ(sent(), (std::vector<int>{1, 3, 5}));
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, BlockSizeEightSkipsTheNinthFrame)
{
    beginTransfer(12);
    grant(8);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));
    grant(8);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12}));
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerFlowControlTest, SkippingTheLastFrameAborts)
{
    beginTransfer(3);
    grant(2);
    CapturedOutput output;
    grant(2);
    EXPECT_EQ(output.out(),
              "[ERROR] CanIsoTpHandler::processSendQueue: reached end of vector (2) - be confused :-/\n");
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::abortProcessing: error = this error should never happen, "
                            "probably caused by a bug\n");
    EXPECT_EQ(sent(), (std::vector<int>{1, 2}));
    EXPECT_EQ(events(), Events{bug});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, LastFrameThatFillsTheBlockEndsTheMessage)
{
    beginTransfer(2);
    grant(2);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2}));
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, BlockSizeMayChangeWithEveryFlowControl)
{
    beginTransfer(9);
    grant(1);
    grant(3);
    EXPECT_EQ(sent(), (std::vector<int>{1, 3, 4, 5}));
    grant(0);
    EXPECT_EQ(sent(), (std::vector<int>{1, 3, 4, 5, 7, 8, 9}));
}

TEST_F(CanIsoTpHandlerFlowControlTest, BlockLimitIsToldAndSleptBefore)
{
    beginTransfer(3);
    peerSendsPadded({0x30, 1, 5});
    sut.debugLevel = 1;
    CapturedOutput output;
    carryOut();
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
                            "[DEBUG] CanIsoTpHandler::processSendQueue: try to send a CF...\n"
                            "[DEBUG] CanIsoTpHandler::processSendQueue: send a CF...\n"
                            "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n"
                            "[DEBUG] CanIsoTpHandler::sleepSeparationTime: sleep for 5000 usec\n"
                            "[DEBUG] CanIsoTpHandler::processSendQueue: block size limit reached, wait for FC\n");
    EXPECT_EQ(SleepCalls::instance().sleeps.all(), std::vector<useconds_t>{5000});
}

TEST_F(CanIsoTpHandlerFlowControlTest, NoSeparationTimeBeforeTheFirstAndAfterTheLastFrame)
{
    beginTransfer(1);
    peerSendsPadded({0x30, 0, 5});
    carryOut();
    EXPECT_EQ(sent(), (std::vector<int>{1}));
    EXPECT_TRUE(SleepCalls::instance().sleeps.all().empty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, WaitKeepsWaitingAndRestartsTheLimit)
{
    beginTransfer(2);
    for (int i = 0; i < 300; ++i) { // there is no limit
        CapturedOutput output;
        peerSendsPadded({0x31, 0, 0});
        ASSERT_EQ(output.err(), "[WARNING] CanIsoTpHandler::checkFlowControl: receive 'wait'\n");
        ASSERT_EQ(output.out(), "");
    }
    EXPECT_EQ(pendingCommands(sut), std::string(300, 'i'));
    EXPECT_EQ(events(), Events(300, warningEvent("receive FC with state = wait")));
    grant(0);
    EXPECT_EQ(sent(), (std::vector<int>{1, 2}));
}

TEST_F(CanIsoTpHandlerFlowControlTest, WaitStoresItsSeparationTime)
{
    beginTransfer(2);
    peerSendsPadded({0x31, 0, 0xF5});
    sut.sleepSeparationTime();
    EXPECT_EQ(SleepCalls::instance().sleeps.all(), std::vector<useconds_t>{500});
}

TEST_F(CanIsoTpHandlerFlowControlTest, WaitStoresItsBlockSize)
{
    beginTransfer(2);
    peerSendsPadded({0x31, 2, 0});
    transmitter.frames.clear();
    sut.sendFlowControl(CAN_STANDARD, Handler::FS_CTS);
    EXPECT_EQ(sentFrames(), Frames{padded({0x30, 2, 0})});
}

TEST_F(CanIsoTpHandlerFlowControlTest, FlowControlAfterItsTimeHasPassedIsUnexpected)
{
    beginTransfer(2);
    sut.handleTimeout();
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(events(), (Events{errorEvent(2, "RX timeout error"),
                                errorEvent(1, "type of received frame != expected frame type")}));
    EXPECT_TRUE(sent().empty());
    send({0xAB});
    carryOut();
    EXPECT_EQ(sentFrames().back(), padded({0x01, 0xAB}));
}

TEST_F(CanIsoTpHandlerFlowControlTest, OverflowAborts)
{
    beginTransfer(2);
    EXPECT_EQ(errorsOf(padded({0x32, 0, 0})),
              "[ERROR] CanIsoTpHandler::abortProcessing: error = other side report overflow error\n");
    EXPECT_EQ(events(), Events{errorEvent(3, "other side report overflow error")});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, UnknownStatusAborts)
{
    beginTransfer(2);
    EXPECT_EQ(errorsOf(padded({0x3C, 0, 0})),
              "[ERROR] CanIsoTpHandler::getFrameFlowStatus: unknown flow status = 0xc\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = frame with invalid format was processed\n");
    EXPECT_EQ(events(), Events{errorEvent(4, "frame with invalid format was processed")});
}

TEST_F(CanIsoTpHandlerFlowControlTest, UnknownStatusIsToldAs255)
{
    beginTransfer(2);
    sut.debugLevel = 1;
    CapturedOutput output;
    sut.checkFlowControlFrame(rawFrame(padded({0x3C, 0x12, 0xFE})));
    EXPECT_EQ(output.out(),
              "[DEBUG] CanIsoTpHandler::checkFlowControlFrame:  0x000007e8 8  0x60 0x18 0x254 0x00 0x00 "
              "0x00 0x00 0x00\n"
              "[DEBUG] CanIsoTpHandler::checkFlowControlFrame: status = 0xff bs = 0x12 st = 0xfe\n"
              "[DBEUG] CanIsoTpThread::pushThread: cmd = i\n");
}

TEST_F(CanIsoTpHandlerFlowControlTest, FlowControlWhileIdleIsUnexpected)
{
    EXPECT_EQ(
        errorsOf(padded({0x30, 0, 0})),
        "[ERROR] CanIsoTpHandler::showExpectedError: received flow control but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x48 0x00 0x00 0x00 0x00 0x00 "
        "0x00 0x00\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
    EXPECT_EQ(events(), Events{errorEvent(1, "type of received frame != expected frame type")});
}

TEST_F(CanIsoTpHandlerFlowControlTest, UnknownStatusWhileIdleIsUnexpectedOnly)
{
    EXPECT_EQ(
        errorsOf(padded({0x3F, 0, 0})),
        "[ERROR] CanIsoTpHandler::showExpectedError: received flow control but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x63 0x00 0x00 0x00 0x00 0x00 "
        "0x00 0x00\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
}

TEST_F(CanIsoTpHandlerFlowControlTest, SecondFlowControlBeforeTheBurstIsUnexpected)
{
    beginTransfer(2);
    peerSendsPadded({0x30, 0, 0});
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(events(), Events{errorEvent(1, "type of received frame != expected frame type")});
    EXPECT_TRUE(sent().empty());
}

TEST_F(CanIsoTpHandlerFlowControlTest, CheckingAnotherFrameIsABug)
{
    beginTransfer(2);
    CapturedOutput output;
    sut.checkFlowControlFrame(rawFrame(padded({0x21})));
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::abortProcessing: error = this error should never happen, "
                            "probably caused by a bug\n");
    EXPECT_EQ(events(), Events{bug});
}

/// Every DLC of a flow control frame, for all four settings.
class FlowControlDlcTest : public CanIsoTpHandlerFlowControlTest,
                           public testing::WithParamInterface<std::tuple<uint8_t, uint8_t, size_t>>
{
};

TEST_P(FlowControlDlcTest, OnlyTheRightOneIsAccepted)
{
    const auto [address, minimal, dlc] = GetParam();
    sut.extAddressLength = address;
    sut.useMinimalDlc = minimal;
    ASSERT_TRUE(send(counting(20)));
    carryOut();
    Bytes frame(address, 0xA5);
    frame.insert(frame.end(), {0x30, 0, 0, 0, 0, 0, 0, 0});
    frame.resize(dlc);
    // Without its control byte it is a single frame to the handler: unexpected, too, but for that reason.
    const bool isFlowControl = dlc > address;
    const bool accepted = dlc == (minimal != 0 ? 3U + address : 8U);
    peerSends(frame);
    if (accepted) {
        EXPECT_TRUE(events().empty());
        EXPECT_EQ(expectation(), Handler::EXPECT_NONE);
    } else {
        EXPECT_EQ(events(), Events{isFlowControl ? errorEvent(5, "DLC of received message is wrong")
                                                 : errorEvent(1, "type of received frame != expected frame type")});
    }
}

INSTANTIATE_TEST_SUITE_P(AddressingAndDlcMode, FlowControlDlcTest,
                         testing::Combine(testing::Values(uint8_t{0}, uint8_t{1}),
                                          testing::Values(uint8_t{0}, uint8_t{1}),
                                          testing::Range(size_t{0}, size_t{9})));

} // namespace
