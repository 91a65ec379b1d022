#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/PipeCalls.h>
#include <support/SleepCalls.h>

#include <cerrno>
#include <chrono>

namespace {

/// The handler's own worker runs; the test decides when its waits expire.
class CanIsoTpHandlerWorkerTest : public IsoTpTest
{
protected:
    CanIsoTpHandlerWorkerTest()
    {
        SleepCalls::instance().sleeps.clear();
        calls.reset();
        calls.ownTime();
    }
    ~CanIsoTpHandlerWorkerTest() override { sut.stop(); }

    /// Returns when the worker waits for its first command.
    void startWorker()
    {
        ASSERT_EQ(sut.start(), 0);
        ASSERT_TRUE(calls.waits.waitForCount(1));
    }

    PipeCalls& calls = PipeCalls::instance();
    const IsoTpEvent started = infoEvent("thread started");
    const IsoTpEvent stopped = infoEvent("thread stopped");
    const IsoTpEvent timedOut = errorEvent(2, "RX timeout error");
};

TEST_F(CanIsoTpHandlerWorkerTest, ReportsStartAndEnd)
{
    startWorker();
    EXPECT_EQ(events(), Events{started});
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(events(), (Events{started, stopped}));
}

TEST_F(CanIsoTpHandlerWorkerTest, SecondStopFindsNothingToJoin)
{
    startWorker();
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(sut.stop(), -1);
}

TEST_F(CanIsoTpHandlerWorkerTest, SecondStartIsRefused)
{
    startWorker();
    EXPECT_EQ(sut.start(), EBUSY);
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(events(), (Events{started, stopped}));
}

TEST_F(CanIsoTpHandlerWorkerTest, StoppedHandlerCanBeStartedAgain)
{
    startWorker();
    sut.stop();
    ASSERT_EQ(sut.start(), 0);
    send(counting(3));
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(sentFrames(), Frames{padded({0x03, 1, 2, 3})});
}

TEST_F(CanIsoTpHandlerWorkerTest, WorkerStartedAfterAnIdleStopEndsAtOnce)
{
    EXPECT_EQ(sut.stop(), -1);
    ASSERT_EQ(sut.start(), 0);
    ASSERT_TRUE(callback.events.waitForCount(2));
    EXPECT_EQ(events(), (Events{started, stopped}));
}

TEST_F(CanIsoTpHandlerWorkerTest, WorkerStartedAfterAnIdleStopSendsWhatWasQueuedBeforeIt)
{
    send({0xAB});
    EXPECT_EQ(sut.stop(), -1);
    ASSERT_EQ(sut.start(), 0);
    ASSERT_TRUE(callback.events.waitForCount(2));
    EXPECT_EQ(events(), (Events{started, stopped}));
    EXPECT_EQ(sentFrames(), Frames{padded({0x01, 0xAB})});
    EXPECT_EQ(sut.stop(), 0);
}

TEST_F(CanIsoTpHandlerWorkerTest, StopDoesNotWaitForAWorkerThatHasEnded)
{
    EXPECT_EQ(sut.stop(), -1);
    ASSERT_EQ(sut.start(), 0); // ends at once: the command to end was there before it
    send(counting(3));
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_FALSE(sut.sendQueueEmpty());
    EXPECT_EQ(transmitter.frames.count(), 0U);
}

TEST_F(CanIsoTpHandlerWorkerTest, MessageThatAnEndedWorkerLeftGoesOutWithTheNextOne)
{
    EXPECT_EQ(sut.stop(), -1);
    ASSERT_EQ(sut.start(), 0);
    send(counting(3));
    EXPECT_EQ(sut.stop(), 0);
    ASSERT_EQ(sut.start(), 0);
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(sentFrames(), Frames{padded({0x03, 1, 2, 3})});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerWorkerTest, StopDoesNotWaitForAWorkerThatACommandEnded)
{
    startWorker();
    sut.pushThread('x');
    ASSERT_TRUE(callback.events.waitForCount(2));
    send(counting(3));
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_FALSE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerWorkerTest, StopWaitsForTheWorkerAfterOneThatItsOwnerJoined)
{
    startWorker();
    sut.pushThread('x');
    EXPECT_EQ(sut.join(), 0);
    ASSERT_EQ(sut.start(), 0);
    ASSERT_TRUE(callback.events.waitForCount(3)); // started again
    for (uint8_t i = 1; i <= 20; ++i) {
        send({i});
    }
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(transmitter.frames.count(), 20U);
}

TEST_F(CanIsoTpHandlerWorkerTest, WaitsWithoutLimitWhileIdle)
{
    startWorker();
    sut.pushThread('i');
    ASSERT_TRUE(calls.waits.waitForCount(2));
    EXPECT_EQ(calls.waits.all(), (std::vector<bool>{false, false}));
}

TEST_F(CanIsoTpHandlerWorkerTest, WaitsOneSecondForFlowControl)
{
    startWorker();
    send(counting(20));
    ASSERT_TRUE(calls.waits.waitForCount(2));
    EXPECT_EQ(calls.waits.all(), (std::vector<bool>{false, true}));
    calls.expire();
}

TEST_F(CanIsoTpHandlerWorkerTest, UnknownCommandIsIgnored)
{
    startWorker();
    sut.pushThread('?');
    ASSERT_TRUE(calls.waits.waitForCount(2));
    EXPECT_EQ(events(), Events{started});
}

TEST_F(CanIsoTpHandlerWorkerTest, MissingFlowControlAbortsAndEmptiesTheQueue)
{
    startWorker();
    CapturedOutput output;
    send(counting(20));
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    calls.expire();
    ASSERT_TRUE(callback.events.waitForCount(2));
    EXPECT_EQ(events(), (Events{started, timedOut}));
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::threadCode: select() timeout\n"
                            "[ERROR] CanIsoTpHandler::abortProcessing: error = RX timeout error\n");
    EXPECT_EQ(output.out(), "");
}

TEST_F(CanIsoTpHandlerWorkerTest, NoSecondTimeoutFollowsAnAbort)
{
    startWorker();
    send(counting(20));
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    calls.expire();
    ASSERT_TRUE(callback.events.waitForCount(2));
    // The first wait, the one that expired, and one after each of the abort's steps at most: none has a limit.
    sut.pushThread('i');
    ASSERT_TRUE(calls.waits.waitForCount(5));
    const std::vector<bool> waits = calls.waits.all();
    EXPECT_EQ(std::vector<bool>(waits.begin() + 2, waits.end()), (std::vector<bool>(waits.size() - 2, false)));
}

TEST_F(CanIsoTpHandlerWorkerTest, MissingConsecutiveFrameAborts)
{
    startWorker();
    peerSends({0x10, 20, 1, 2, 3, 4, 5, 6});
    calls.expire();
    ASSERT_TRUE(callback.events.waitForCount(2));
    EXPECT_EQ(events(), (Events{started, timedOut}));
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

TEST_F(CanIsoTpHandlerWorkerTest, WaitStartsAgainWithEveryCommand)
{
    startWorker();
    send(counting(20));
    ASSERT_TRUE(calls.waits.waitForCount(2));
    for (size_t i = 0; i < 5; ++i) {
        peerSendsPadded({0x31, 0, 0});
        ASSERT_TRUE(calls.waits.waitForCount(3 + i));
    }
    EXPECT_EQ(calls.waits.all(), (std::vector<bool>{false, true, true, true, true, true, true}));
    peerSendsPadded({0x30, 0, 0});
    ASSERT_TRUE(transmitter.frames.waitForCount(3));
}

TEST_F(CanIsoTpHandlerWorkerTest, InterruptedWaitGoesOnSilently)
{
    calls.waitsToRead.add(EINTR);
    CapturedOutput output;
    ASSERT_EQ(sut.start(), 0);
    ASSERT_TRUE(calls.waits.waitForCount(2));
    sut.stop();
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(events(), (Events{started, stopped}));
}

TEST_F(CanIsoTpHandlerWorkerTest, FailedWaitIsLoggedAndRepeated)
{
    calls.waitsToRead.add(ENOMEM);
    CapturedOutput output;
    ASSERT_EQ(sut.start(), 0);
    ASSERT_TRUE(calls.waits.waitForCount(2));
    sut.stop();
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::threadCode: select() reported an error: Cannot allocate memory\n");
    EXPECT_EQ(events(), (Events{started, stopped}));
}

TEST_F(CanIsoTpHandlerWorkerTest, FailedReadAborts)
{
    startWorker();
    calls.reads.add(EIO);
    CapturedOutput output;
    sut.pushThread('?');
    ASSERT_TRUE(callback.events.waitForCount(2));
    sut.stop();
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::threadCode: can't read thread pipe, error: Input/output error\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = some error in thread loop occurred\n");
    EXPECT_EQ(events(), (Events{started, errorEvent(11, "some error in thread loop occurred"), stopped}));
}

TEST_F(CanIsoTpHandlerWorkerTest, InterruptedReadIsRepeated)
{
    startWorker();
    calls.reads.add(EINTR);
    send(counting(2));
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    EXPECT_EQ(events(), Events{started});
}

TEST_F(CanIsoTpHandlerWorkerTest, StopWhoseCommandCannotBeWrittenEndsTheWorker)
{
    startWorker();
    calls.writes.add(EIO);
    CapturedOutput output;
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::pushThread: can't write, error: Input/output error\n"
                            "[ERROR] CanIsoTpHandler::abortProcessing: error = push thread to send failed\n");
}

TEST_F(CanIsoTpHandlerWorkerTest, StopWithoutWorkerOrRoomForItsCommandAborts)
{
    send({0xAB});
    calls.waitsToWrite.add(PipeCalls::TIMED_OUT);
    CapturedOutput output;
    EXPECT_EQ(sut.stop(), -1);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::pushThread: timeout\n"
                            "[ERROR] CanIsoTpHandler::abortProcessing: error = push thread to send failed\n");
    EXPECT_EQ(events(), Events{errorEvent(10, "push thread to send failed")});
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerWorkerTest, StopWaitsUntilEverythingIsSent)
{
    startWorker();
    for (uint8_t i = 1; i <= 20; ++i) {
        send({i});
    }
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(transmitter.frames.count(), 20U);
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerWorkerTest, StopWaitsForATransferAndItsFollowers)
{
    transmitter.onFrame = [&](const CANExtTraceMessage& frame) {
        if ((frame.data[0] & 0xF0) == 0x10) {
            peerSendsPadded({0x30, 0, 0});
        }
        return 0;
    };
    startWorker();
    send(counting(20));
    send(counting(30));
    send(counting(3));
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_EQ(transmitter.frames.count(), 3U + 5U + 1U);
}

TEST_F(CanIsoTpHandlerWorkerTest, StopReturnsWhenAnAbortEmptiedTheQueue)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    startWorker();
    send(counting(20));
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    calls.expire();
    EXPECT_EQ(sut.stop(), 0);
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_EQ(callback.events.all().back(), stopped);
}

TEST_F(CanIsoTpHandlerWorkerTest, TellsEachStepWithDebugLevel)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    startWorker();
    sut.pushThread('i');
    ASSERT_TRUE(calls.waits.waitForCount(2));
    sut.stop();
    EXPECT_EQ(output.out(),
              "[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = single (SF) or first frame (FF)\n"
              "[DEBUG] CanIsoTpThread::threadCode: timeout set to 0\n"
              "[DBEUG] CanIsoTpThread::pushThread: cmd = i\n"
              "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
              "[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = single (SF) or first frame (FF)\n"
              "[DEBUG] CanIsoTpThread::threadCode: timeout set to 0\n"
              "[DBEUG] CanIsoTpThread::pushThread: cmd = x\n"
              "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerWorkerTest, TellsTheTimeLimitWithDebugLevel)
{
    peerSends({0x10, 20, 1, 2, 3, 4, 5, 6});
    sut.debugLevel = 1;
    CapturedOutput output;
    calls.expire();
    ASSERT_EQ(sut.start(), 0);
    ASSERT_TRUE(calls.waits.waitForCount(4)); // 'i' of the first frame, expired, 'i' of the abort, idle
    EXPECT_EQ(output.out(),
              "[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = consecutive frame (CF)\n"
              "[DEBUG] CanIsoTpThread::threadCode: timeout set to 1 (default)\n"
              "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
              "[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = consecutive frame (CF)\n"
              "[DEBUG] CanIsoTpThread::threadCode: timeout set to 1 (default)\n"
              "[DBEUG] CanIsoTpThread::pushThread: cmd = i\n"
              "[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = single (SF) or first frame (FF)\n"
              "[DEBUG] CanIsoTpThread::threadCode: timeout set to 0\n"
              "[DEBUG] CanIsoTpHandler::threadCode: select() data available\n"
              "[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = single (SF) or first frame (FF)\n"
              "[DEBUG] CanIsoTpThread::threadCode: timeout set to 0\n");
    sut.debugLevel = 0;
}

TEST_F(CanIsoTpHandlerWorkerTest, StopTellsThatItWaits)
{
    startWorker();
    send(counting(20));
    ASSERT_TRUE(calls.waits.waitForCount(2));
    sut.debugLevel = 1;
    CapturedOutput output;
    std::thread stopper([&] { sut.stop(); });
    ASSERT_TRUE(SleepCalls::instance().sleeps.waitForCount(2));
    calls.expire();
    stopper.join();
    EXPECT_EQ(SleepCalls::instance().sleeps.all().front(), 1000U);
    // As many times as it looked, before anything that the worker or the end has to tell.
    const std::string wait = "[DEBUG] CanIsoTpHandler::stop: wait till all messages were sent\n";
    EXPECT_EQ(output.out().substr(0, 2 * wait.size()), wait + wait);
}

class CanIsoTpHandlerTimeoutTest : public IsoTpTest
{
protected:
    std::string outputOfTimeout()
    {
        CapturedOutput output;
        sut.handleTimeout();
        EXPECT_EQ(output.err(), "");
        return output.out();
    }
    const std::string noReason =
        "[WARNING] CanIsoTpHandler::handleTimeout: abort, because there is no timeout reason!\n";
};

TEST_F(CanIsoTpHandlerTimeoutTest, TimeoutWhileIdleWarnsAndChangesNothing)
{
    send(counting(20));
    EXPECT_EQ(outputOfTimeout(), noReason);
    EXPECT_FALSE(sut.sendQueueEmpty());
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerTimeoutTest, TimeoutAfterFlowControlWarnsAndChangesNothing)
{
    send(counting(20));
    carryOut();
    peerSendsPadded({0x30, 0, 0});
    ASSERT_EQ(expectation(), Handler::EXPECT_NONE);
    EXPECT_EQ(outputOfTimeout(), noReason);
    EXPECT_EQ(expectation(), Handler::EXPECT_NONE);
    carryOut();
    EXPECT_EQ(sentFrames().size(), 3U);
}

TEST_F(CanIsoTpHandlerTimeoutTest, TimeoutWhileDeliveringIsNone)
{
    callback.onMessage = [&](const CANTransportTraceMessage&) { EXPECT_EQ(outputOfTimeout(), ""); };
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    peerSendsPadded({0x21, 7, 8});
    EXPECT_EQ(events(), Events{messageEvent(counting(8))});
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
}

/// The clock of the machine.
TEST(CanIsoTpHandlerRealTimeTest, MissingFlowControlAbortsAfterOneSecond)
{
    FakeTransmitter::instance().reset();
    PipeCalls::instance().reset();
    RecordingIsoTpCallback callback;
    Handler sut("TraceLogger", "Diagnostic", CHANNEL, RX_ID, CAN_STANDARD, TX_ID, CAN_STANDARD);
    sut.setCallback(callback);
    ASSERT_EQ(sut.start(), 0);
    const Bytes payload = counting(20);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(sut.sendTxID(payload.data(), payload.size()));
    ASSERT_TRUE(callback.events.waitForCount(2));
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::seconds(1));
    EXPECT_LT(taken, std::chrono::seconds(20));
    EXPECT_EQ(callback.events.all()[1], errorEvent(2, "RX timeout error"));
    sut.stop();
}

} // namespace
