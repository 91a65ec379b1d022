#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/PipeCalls.h>

#include <cerrno>
#include <chrono>

#include <poll.h>

REVEAL_MEMBER(SeparationTimeMember, CanIsoTpHandler, separationTime);
REVEAL_MEMBER(ControlPipe, CanIsoTpHandler, pipeFds);

namespace {

constexpr const char* ABORT_PUSH_FAILED =
    "[ERROR] CanIsoTpHandler::abortProcessing: error = push thread to send failed\n";

class CanIsoTpHandlerControlTest : public IsoTpTest
{
protected:
    CanIsoTpHandlerControlTest() { calls.reset(); }

    static bool hasRoom(int fd)
    {
        pollfd watched{fd, POLLOUT, 0};
        return poll(&watched, 1, 0) == 1;
    }

    const IsoTpEvent pushFailed = errorEvent(10, "push thread to send failed");
    PipeCalls& calls = PipeCalls::instance();
};

TEST_F(CanIsoTpHandlerControlTest, PushWritesOneByte)
{
    CapturedOutput output;
    sut.pushThread('i');
    sut.pushThread('q');
    EXPECT_EQ(pendingCommands(sut), "iq");
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanIsoTpHandlerControlTest, PushIsLoggedWithTheMisspeltTag)
{
    sut.debugLevel = 1;
    CapturedOutput output;
    sut.pushThread('i');
    EXPECT_EQ(output.out(), "[DBEUG] CanIsoTpThread::pushThread: cmd = i\n");
}

TEST_F(CanIsoTpHandlerControlTest, PushThatTimesOutAbortsWithoutWriting)
{
    calls.waitsToWrite.add(PipeCalls::TIMED_OUT);
    CapturedOutput output;
    sut.pushThread('q');
    EXPECT_EQ(output.err(), std::string("[ERROR] CanIsoTpHandler::pushThread: timeout\n") + ABORT_PUSH_FAILED);
    EXPECT_EQ(pendingCommands(sut), "i"); // the abort's
    EXPECT_EQ(events(), Events{pushFailed});
}

TEST_F(CanIsoTpHandlerControlTest, PushWhoseSelectFailsAborts)
{
    calls.waitsToWrite.add(EBADF);
    CapturedOutput output;
    sut.pushThread('q');
    EXPECT_EQ(output.err(),
              std::string("[ERROR] CanIsoTpHandler::pushThread: select error: Bad file descriptor\n") +
                  ABORT_PUSH_FAILED);
    EXPECT_EQ(pendingCommands(sut), "i");
    EXPECT_EQ(events(), Events{pushFailed});
}

TEST_F(CanIsoTpHandlerControlTest, PushThatCannotWriteAborts)
{
    calls.writes.add(EIO);
    CapturedOutput output;
    sut.pushThread('q');
    EXPECT_EQ(output.err(),
              std::string("[ERROR] CanIsoTpHandler::pushThread: can't write, error: Input/output error\n") +
                  ABORT_PUSH_FAILED);
    EXPECT_EQ(events(), Events{pushFailed});
}

TEST_F(CanIsoTpHandlerControlTest, PushGoesOnAfterAnInterruption)
{
    calls.waitsToWrite.add(EINTR);
    calls.writes.add(EINTR);
    calls.writes.add(EAGAIN);
    sut.pushThread('q');
    EXPECT_EQ(pendingCommands(sut), "q");
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerControlTest, FailingPushInsideAnAbortIsNoSecondAbort)
{
    calls.writes.add(EIO);
    calls.writes.add(EIO);
    CapturedOutput output;
    sut.pushThread('q');
    EXPECT_EQ(output.err(),
              std::string("[ERROR] CanIsoTpHandler::pushThread: can't write, error: Input/output error\n") +
                  ABORT_PUSH_FAILED +
                  "[ERROR] CanIsoTpHandler::pushThread: can't write, error: Input/output error\n");
    EXPECT_EQ(events(), Events{pushFailed});
}

TEST_F(CanIsoTpHandlerControlTest, FullPipeAtTheEndOfAReceptionIsOneWaitAndOneAbort)
{
    peerSends({0x10, 8, 1, 2, 3, 4, 5, 6});
    for (int i = 0; i < 3; ++i) {
        calls.waitsToWrite.add(PipeCalls::TIMED_OUT);
    }
    CapturedOutput output;
    peerSendsPadded({0x21, 7, 8});
    EXPECT_EQ(output.err(), std::string("[ERROR] CanIsoTpHandler::pushThread: timeout\n") + ABORT_PUSH_FAILED +
                                "[ERROR] CanIsoTpHandler::pushThread: timeout\n"); // the abort's, without a wait
    EXPECT_EQ(events(), (Events{messageEvent(counting(8)), pushFailed}));
}

TEST_F(CanIsoTpHandlerControlTest, FullPipeTakesOneSecondAndOneAbort)
{
    size_t written = 0;
    while (hasRoom((sut.*reveal(ControlPipe{}))[1])) {
        sut.pushThread('i');
        ++written;
    }
    ASSERT_TRUE(events().empty());
    CapturedOutput output;
    const auto begin = std::chrono::steady_clock::now();
    sut.pushThread('q');
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::seconds(1));
    EXPECT_LT(taken, std::chrono::seconds(20));
    EXPECT_EQ(output.err(), std::string("[ERROR] CanIsoTpHandler::pushThread: timeout\n") + ABORT_PUSH_FAILED +
                                "[ERROR] CanIsoTpHandler::pushThread: timeout\n");
    EXPECT_EQ(events(), Events{pushFailed});
    EXPECT_EQ(pendingCommands(sut).size(), written);
}

TEST_F(CanIsoTpHandlerControlTest, AbortDropsThreeMessagesAndReportsOneError)
{
    send(counting(3));
    send(counting(30));
    send(counting(300));
    CapturedOutput output;
    sut.abortProcessing(Handler::ERR_OVERFLOW);
    EXPECT_EQ(output.err(), "[ERROR] CanIsoTpHandler::abortProcessing: error = other side report overflow error\n");
    EXPECT_EQ(output.out(), "");
    EXPECT_TRUE(sut.sendQueueEmpty());
    EXPECT_EQ(events(), Events{errorEvent(3, "other side report overflow error")});
}

TEST_F(CanIsoTpHandlerControlTest, AbortReturnsToIdleAndWakesTheWorker)
{
    peerSends({0x10, 20, 1, 2, 3, 4, 5, 6});
    ASSERT_EQ(expectation(), Handler::EXPECT_CF);
    sut.abortProcessing(Handler::ERR_NONE);
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(pendingCommands(sut), "ii"); // first frame, abort
    EXPECT_EQ(events(), Events{errorEvent(0, "no error")});
}

TEST_F(CanIsoTpHandlerControlTest, AbortClearsTheSeparationTime)
{
    sut.abortProcessing(Handler::ERR_BUG);
    EXPECT_EQ(sut.*reveal(SeparationTimeMember{}), 0);
}

TEST_F(CanIsoTpHandlerControlTest, AbortWithUnknownCodeReportsItsText)
{
    sut.abortProcessing(static_cast<Handler::errorCode_t>(13));
    EXPECT_EQ(events(), Events{errorEvent(13, "invalid error code")});
}

TEST_F(CanIsoTpHandlerControlTest, MessageQueuedWhileTheAbortIsReportedIsSent)
{
    callback.onStatus = [&](const IsoTpEvent& event) {
        if (event.code == Handler::ERR_OVERFLOW) {
            send(counting(2));
        }
    };
    sut.abortProcessing(Handler::ERR_OVERFLOW);
    carryOut();
    EXPECT_EQ(sentFrames(), Frames{padded({0x02, 1, 2})});
}

TEST_F(CanIsoTpHandlerControlTest, ClearDropsMessagesWithoutStatus)
{
    send(counting(3));
    send(counting(30));
    sut.clear();
    EXPECT_TRUE(sut.sendQueueEmpty());
    carryOut();
    EXPECT_TRUE(sentFrames().empty());
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerControlTest, TransferWhoseQueueWasClearedEndsWithTheNextFlowControl)
{
    send(counting(30));
    carryOut();
    sut.clear();
    peerSendsPadded({0x30, 0, 0});
    carryOut();
    EXPECT_EQ(expectation(), Handler::EXPECT_SF_OR_FF);
    EXPECT_EQ(sentFrames().size(), 1U);
    EXPECT_TRUE(events().empty());
}

TEST_F(CanIsoTpHandlerControlTest, DeletingFromAnEmptyQueueDoesNothing)
{
    sut.deleteFirstMessage();
    EXPECT_TRUE(sut.sendQueueEmpty());
}

TEST_F(CanIsoTpHandlerControlTest, DeletingTakesTheFirstMessage)
{
    sut.debugLevel = 1;
    send(counting(1));
    send(counting(2));
    CapturedOutput output;
    sut.deleteFirstMessage();
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::deleteFirstMessage\n");
    sut.debugLevel = 0;
    carryOut();
    EXPECT_EQ(sentFrames(), Frames{padded({0x02, 1, 2})});
}

TEST_F(CanIsoTpHandlerControlTest, StopWithoutWorkerReturnsAtOnce)
{
    send(counting(30)); // nobody will ever send it
    CapturedOutput output;
    EXPECT_EQ(sut.stop(), -1);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(pendingCommands(sut), "sx");
    EXPECT_FALSE(sut.sendQueueEmpty());
}

} // namespace
