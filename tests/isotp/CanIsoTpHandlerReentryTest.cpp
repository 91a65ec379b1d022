#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>

#include <atomic>
#include <thread>

REVEAL_MEMBER(BytesToReceive, CanIsoTpHandler, bytesToReceive);
REVEAL_MEMBER(StateMutex, CanIsoTpHandler, protocolMutex);
REVEAL_MEMBER(State, CanIsoTpHandler, expectedFrame);
REVEAL_MEMBER(Cursor, CanIsoTpHandler, sendCursor);

namespace {

const IsoTpEvent WAIT_FOR_SOME_FRAME = warningEvent("can't process send queue, wait for some frame");
const IsoTpEvent UNEXPECTED = errorEvent(1, "type of received frame != expected frame type");
const IsoTpEvent TX_FAILED = errorEvent(7, "error while processing data to send");
const IsoTpEvent BUG = errorEvent(12, "this error should never happen, probably caused by a bug");

/// The peer answers before the transmission returns, callbacks send, other threads abort.
class CanIsoTpHandlerReentryTest : public IsoTpTest
{
protected:
    /// The peer's answer to the n-th frame (from 0), within its transmission.
    void peerAnswers(int n, const Bytes& answer)
    {
        answers.emplace_back(n, answer);
        transmitter.onFrame = [this](const CANExtTraceMessage&) {
            const int index = transmitted++;
            for (const auto& [at, frame] : answers) {
                if (at == index) {
                    peerSendsPadded(frame);
                }
            }
            return 0;
        };
    }

    /// Runs during the transmission of the n-th frame.
    void duringFrame(int n, std::function<int()> action)
    {
        transmitter.onFrame = [this, n, action](const CANExtTraceMessage&) {
            return transmitted++ == n ? action() : 0;
        };
    }

    std::vector<std::pair<int, Bytes>> answers;
    int transmitted = 0;
};

TEST_F(CanIsoTpHandlerReentryTest, FlowControlWithinTheFirstFrameIsServed)
{
    peerAnswers(0, {0x30, 0, 0});
    send(counting(20));
    carryOut();
    EXPECT_EQ(sentFrames().size(), 3U);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, FlowControlWithinTheFrameThatFillsTheBlockIsServed)
{
    peerAnswers(0, {0x30, 2, 0});
    peerAnswers(2, {0x30, 2, 0});
    send(counting(6 + 5 * 7));
    carryOut();
    ASSERT_EQ(sentFrames().size(), 5U); // first frame, 1, 2, 4, 5
    EXPECT_EQ(sentFrames()[3][0], 0x24);
    EXPECT_EQ(sentFrames()[4][0], 0x25);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReentryTest, AnswerWithinTheLastFrameIsReceived)
{
    peerAnswers(0, {0x30, 0, 0});
    peerAnswers(1, {0x02, 7, 8});
    send(counting(8));
    carryOut();
    EXPECT_EQ(events(), Events{messageEvent({7, 8})});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, AnswerWithinTheLastFrameOfABlockIsReceived)
{
    peerAnswers(0, {0x30, 1, 0});
    peerAnswers(1, {0x02, 7, 8});
    send(counting(8));
    carryOut();
    EXPECT_EQ(events(), Events{messageEvent({7, 8})});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, SegmentedAnswerWithinASingleFrameIsReceived)
{
    peerAnswers(0, {0x10, 8, 1, 2, 3, 4, 5, 6});
    peerAnswers(1, {0x21, 7, 8}); // within the own flow control
    send({0xAB});
    carryOut();
    EXPECT_EQ(events(), Events{messageEvent(counting(8))});
    EXPECT_EQ(sentFrames(), (Frames{padded({0x01, 0xAB}), padded({0x30, 0, 0})}));
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, UnexpectedFrameWithinTheFirstFrameAbortsOnce)
{
    peerAnswers(0, {0x01, 5});
    send(counting(20));
    send(counting(20));
    carryOut();
    EXPECT_EQ(events(), Events{UNEXPECTED});
    EXPECT_EQ(sentFrames().size(), 1U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, OverflowWithinAConsecutiveFrameOfABlockAborts)
{
    peerAnswers(0, {0x30, 1, 0});
    peerAnswers(1, {0x32, 0, 0});
    send(counting(20));
    carryOut();
    EXPECT_EQ(events(), Events{errorEvent(3, "other side report overflow error")});
    EXPECT_EQ(sentFrames().size(), 2U);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, AbortWithinABurstEndsItBeforeTheNextFrame)
{
    peerAnswers(0, {0x30, 0, 0});
    peerAnswers(3, {0x01, 5});
    send(counting(100));
    carryOut();
    EXPECT_EQ(sentFrames().size(), 4U);
    EXPECT_EQ(events(), Events{UNEXPECTED});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, FailureOfATransmissionThatWasAbortedMeanwhileIsSilent)
{
    duringFrame(0, [this] {
        peerSendsPadded({0x01, 5}); // aborts
        return -1;
    });
    send(counting(20));
    carryOut();
    EXPECT_EQ(events(), Events{UNEXPECTED});
}

TEST_F(CanIsoTpHandlerReentryTest, AbortByAnotherThreadEndsTheBurst)
{
    peerAnswers(0, {0x30, 0, 0});
    send(counting(100));
    const auto grant = transmitter.onFrame;
    std::thread aborter;
    std::atomic<bool> begun{false};
    transmitter.onFrame = [&](const CANExtTraceMessage& frame) {
        const int result = grant(frame);
        if (transmitted == 3) {
            aborter = std::thread([&] {
                begun = true;
                sut.abortProcessing(Handler::ERR_OVERFLOW); // waits for the queue
            });
            while (expectation() != Handler::EXPECT_SF_OR_FF) {
                std::this_thread::yield();
            }
        }
        return result;
    };
    carryOut();
    aborter.join();
    EXPECT_TRUE(begun);
    EXPECT_EQ(sentFrames().size(), 3U);
    EXPECT_EQ(events(), Events{errorEvent(3, "other side report overflow error")});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, AnswerFromTheMessageCallbackGoesOutOnce)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) { send({0xAB}); };
    peerSendsPadded({0x01, 5});
    carryOut();
    EXPECT_EQ(sentFrames(), Frames{padded({0x01, 0xAB})});
    EXPECT_EQ(events(), Events{messageEvent({5})});
}

TEST_F(CanIsoTpHandlerReentryTest, AnswerFromTheCallbackOfASegmentedMessageGoesOutOnce)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) { send({0xAB}); };
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    carryOut();
    EXPECT_EQ(sentFrames(), (Frames{padded({0x30, 0, 0}), padded({0x01, 0xAB})}));
    EXPECT_EQ(events(), (Events{messageEvent(counting(8)), WAIT_FOR_SOME_FRAME}));
}

TEST_F(CanIsoTpHandlerReentryTest, SegmentedAnswerFromTheCallbackIsNotDisturbedByTheEndOfTheSingleFrame)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) {
        send(counting(20));
        carryOut(); // the worker is quick: the first frame is out before the callback returns
        EXPECT_EQ(expectation(), Handler::EXPECT_FC);
    };
    peerSendsPadded({0x01, 5});
    EXPECT_EQ(expectation(), Handler::EXPECT_FC);
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(sentFrames().size(), 3U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, StatusCallbackMaySend)
{
    callback.onStatus = [&](const IsoTpEvent& event) {
        if (event.text == "receive FC with state = wait") {
            send({0xAB});
        }
    };
    send(counting(8));
    carryOut();
    peerSendsPadded({0x31, 0, 0});
    // The warning about the second message is caused by the callback: delivered inside it, after its cause.
    EXPECT_EQ(events(), (Events{warningEvent("receive FC with state = wait"), WAIT_FOR_SOME_FRAME}));
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(sentFrames().size(), 3U);
}

TEST_F(CanIsoTpHandlerReentryTest, StatusCallbackMaySendWhileTheWorkerHoldsTheQueue)
{
    callback.onStatus = [&](const IsoTpEvent& event) {
        if (event.text == "receive FC with state = wait") {
            send({0xAB});
        }
    };
    peerAnswers(0, {0x31, 0, 0});
    send(counting(8));
    carryOut();
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(sentFrames().size(), 3U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, MessageCallbackMaySendWhileTheWorkerHoldsTheQueue)
{
    callback.onMessage = [&](const CANTransportTraceMessage& message) {
        if (message.data[0] < 50) {
            send({static_cast<uint8_t>(message.data[0] + 1)});
        }
    };
    transmitter.onFrame = [&](const CANExtTraceMessage& frame) { // an echo
        peerSends(bytesOf(frame));
        return 0;
    };
    send({1});
    carryOut();
    EXPECT_EQ(callback.messages.count(), 50U);
    EXPECT_EQ(sentFrames().size(), 50U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, ErrorInsideACallbackIsReportedInsideIt)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) {
        send({});
        EXPECT_EQ(events().back(), TX_FAILED);
    };
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    EXPECT_EQ(events(), (Events{messageEvent(counting(8)), TX_FAILED}));
    EXPECT_EQ(pendingCommands(sut), "ii"); // first frame and abort: the reception ends silently
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReentryTest, AbortInsideTheMessageCallbackEndsTheReceptionSilently)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) {
        send({0xAB}); // dropped by the abort
        sut.abortProcessing(Handler::ERR_OVERFLOW);
        EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    };
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    EXPECT_EQ(events(), (Events{messageEvent(counting(8)), WAIT_FOR_SOME_FRAME,
                                errorEvent(3, "other side report overflow error")}));
    EXPECT_EQ(pendingCommands(sut), "ii"); // first frame and abort
    carryOut();
    EXPECT_EQ(sentFrames(), Frames{padded({0x30, 0, 0})});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, AbortInsideTheStatusCallbackOfAWaitIsTheLastWord)
{
    callback.onStatus = [&](const IsoTpEvent& event) {
        if (event.text == "receive FC with state = wait") {
            sut.abortProcessing(Handler::ERR_OVERFLOW);
        }
    };
    send(counting(8));
    carryOut();
    peerSendsPadded({0x31, 0, 0});
    EXPECT_EQ(pendingCommands(sut), "i"); // the abort's only
    EXPECT_EQ(events(), (Events{warningEvent("receive FC with state = wait"),
                                errorEvent(3, "other side report overflow error")}));
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerReentryTest, MessageSentAfterAnErrorInsideACallbackGoesOut)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) {
        send({});
        send({0xAB});
    };
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    carryOut();
    EXPECT_EQ(sentFrames().back(), padded({0x01, 0xAB}));
}

TEST_F(CanIsoTpHandlerReentryTest, ConsecutiveFrameDuringDeliveryIsUnexpected)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) {
        callback.onMessage = nullptr;
        CapturedOutput output;
        peerSendsPadded({0x22});
        EXPECT_EQ(
            output.err(),
            "[ERROR] CanIsoTpHandler::showExpectedError: received consecutive frame but expected first or single "
            "frame\n"
            "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x000007e8 8  0x34 0x00 0x00 0x00 0x00 0x00 "
            "0x00 0x00\n"
            "[ERROR] CanIsoTpHandler::abortProcessing: error = type of received frame != expected frame type\n");
    };
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    EXPECT_EQ(events(), (Events{messageEvent(counting(8)), UNEXPECTED}));
}

TEST_F(CanIsoTpHandlerReentryTest, SendersFromAnotherThreadWaitForTheBurst)
{
    std::thread sender;
    std::atomic<bool> returned{false};
    transmitter.onFrame = [&](const CANExtTraceMessage& frame) {
        const int index = transmitted++;
        if (index == 0) {
            peerSendsPadded({0x30, 0, 0});
        } else if (index == 1) {
            sender = std::thread([&] {
                send({0xAB});
                returned = true;
            });
        } else if ((frame.data[0] & 0xF0) == 0x20) {
            EXPECT_FALSE(returned);
        }
        return 0;
    };
    send(counting(100));
    carryOut();
    sender.join();
    carryOut();
    EXPECT_EQ(sentFrames().back(), padded({0x01, 0xAB}));
    EXPECT_TRUE(events().empty());
}

/// States that only a change of the codec settings between building and sending brings about.
class ChangedAddressingTest : public CanIsoTpHandlerReentryTest
{
protected:
    /// The frame is read one byte further on than it was built.
    void sendBuiltWithNormalAddressing(const Bytes& payload)
    {
        send(payload);
        sut.extAddressLength = 1;
        carryOut();
    }
};

TEST_F(ChangedAddressingTest, FrameOfNoKindIsABug)
{
    CapturedOutput output;
    sendBuiltWithNormalAddressing({0x40});
    EXPECT_EQ(
        output.err(),
        "[ERROR] CanIsoTpHandler::processSendQueue: can't make a decision, that should never happen!\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = this error should never happen, probably caused by a "
        "bug\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(events(), Events{BUG});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(ChangedAddressingTest, QueuedFlowControlExpectsConsecutiveFrames)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    sendBuiltWithNormalAddressing({0x30});
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::prepareData: create a single frame...\n"
                            "[DBEUG] CanIsoTpThread::pushThread: cmd = s\n"
                            "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
                            "[DEBUG] CanIsoTpHandler::processSendQueue: send a FC...\n"
                            "[DEBUG] CanIsoTpHandler::sendCANMessage: send successful\n");
    EXPECT_EQ(sentFrames(), Frames{padded({0x01, 0x30})});
    EXPECT_EQ(expectation(), Handler::EXPECT_CF);
    sut.debugLevel = 0;
    sut.handleTimeout();
    EXPECT_EQ(events(), Events{errorEvent(2, "RX timeout error")});
}

TEST_F(ChangedAddressingTest, SingleFrameInTheMiddleOfAMessageEndsIt)
{
    send(counting(20));
    carryOut();
    peerSendsPadded({0x30, 0, 0});
    sut.extAddressLength = 1; // 21 07 08 ...: 07 is read as the control byte now
    carryOut();
    EXPECT_EQ(sentFrames().size(), 2U);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_TRUE(events().empty());
    send({0xAB});
    carryOut();
    EXPECT_EQ(sentFrames().back(), padded({0x00, 0x01, 0xAB}));
}

TEST_F(CanIsoTpHandlerReentryTest, CursorBehindTheEndIsABug)
{
    send(counting(20));
    carryOut();
    peerSendsPadded({0x30, 0, 0});
    {
        Mutex& mutex = sut.*reveal(StateMutex{});
        const MutexLock lock(mutex);
        sut.*reveal(Cursor{}) = 3;
    }
    CapturedOutput output;
    carryOut();
    EXPECT_EQ(output.out(), "[ERROR] CanIsoTpHandler::processSendQueue: reached end of vector - be confused :-/\n");
    EXPECT_EQ(events(), Events{BUG});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerReentryTest, FirstFrameWithDataMissingIsABug)
{
    {
        Mutex& mutex = sut.*reveal(StateMutex{});
        const MutexLock lock(mutex);
        sut.*reveal(BytesToReceive{}) = 1;
    }
    CapturedOutput output;
    peerSends({0x10, 20, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(
        output.err(),
        "[ERROR] CanIsoTpHandler::checkFirstFrame: bytesToReceive != 0, this should never happen!\n"
        "[ERROR] CanIsoTpHandler::abortProcessing: error = this error should never happen, probably caused by a "
        "bug\n");
    EXPECT_EQ(events(), Events{BUG});
    EXPECT_TRUE(sentFrames().empty());
}

TEST_F(CanIsoTpHandlerReentryTest, FirstFrameOfThePeerKeepsTheWorkersMessageQueued)
{
    send(counting(20)); // the command is on its way
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    carryOut();
    EXPECT_EQ(expectation(), Handler::EXPECT_CF);
    EXPECT_EQ(sentFrames(), Frames{padded({0x30, 0, 0})});
    EXPECT_FALSE(sut.sendQueueEmpty());
    peerSendsPadded({0x21, 7, 8});
    carryOut();
    EXPECT_EQ(expectation(), Handler::EXPECT_FC);
    EXPECT_EQ(sentFrames().size(), 2U);
    EXPECT_EQ(events(), Events{messageEvent(counting(8))});
}

} // namespace
