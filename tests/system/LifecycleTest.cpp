#include "FloodSender.h"
#include "PselectWatch.h"
#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Census.h>
#include <support/PrivateMember.h>
#include <support/Sanitizer.h>
#include <support/Waiting.h>

#include <chrono>
#include <future>

REVEAL_MEMBER(LifecycleRunning, MsgRxHandler, running);

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
class LifecycleTest : public SystemTest
{
protected:
    /// Starts and stops so often; each time a frame arrives if there is traffic. Threads and descriptors are back
    /// at the start in the end.
    void startAndStop(unsigned count, TestInterface& receiver, bool traffic)
    {
        receiver.configure();
        const Census before = settledCensus();
        for (unsigned i = 0; i < count; ++i) {
            goOnline({&receiver});
            if (traffic) {
                ASSERT_TRUE(receiver.callback.frames.waitForCount(1)) << "start " << i;
            }
            goOffline({&receiver});
            receiver.callback.frames.clear();
        }
        EXPECT_TRUE(becomesTrue([&] { return Census::take() == before; })) << Census::take() << ", was " << before;
        EXPECT_EQ(logger->statistics().readers, 0U);
    }

    /// Stops the dispatcher at a moment when its thread is in a wait: that one is the last, whatever is ready.
    static void expectStopWithinOneWait()
    {
        std::future<void> stop;
        size_t begun = 0;
        {
            const pselectwatch::Hold hold;
            ASSERT_TRUE(hold.await(LIMIT));
            stop = std::async(std::launch::async, [] { dispatcher().setOffline(); });
            ASSERT_TRUE(becomesTrue([] { return !(dispatcher().*reveal(LifecycleRunning{})); }));
            begun = pselectwatch::begun();
        }
        stop.get();
        EXPECT_EQ(pselectwatch::begun(), begun);
    }
};

TEST_F(LifecycleTest, StopDuringAFloodReturnsWithinOneWaitAndNothingArrivesAfterwards)
{
    startLogger(vlogger::board::PLAIN);
    FloodSender flood(0);
    TestInterface receiver(NumberedSender::receiverConfiguration(1));
    CapturedOutput output;
    goOnline({&receiver});
    flood.start();
    ASSERT_TRUE(receiver.callback.frames.waitForCount(1000));

    expectStopWithinOneWait();

    const size_t received = receiver.callback.frames.count();
    EXPECT_TRUE(flood.awaitSent(flood.sentCount() + 10'000));
    EXPECT_EQ(receiver.callback.frames.count(), received);
    EXPECT_EQ(receiver.callback.statuses.all(), (std::vector<int>{1, 2}));
}

TEST_F(LifecycleTest, ManyStartsAndStopsUnderTrafficLeaveNoThreadAndNoDescriptor)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    FloodSender flood(0);
    TestInterface receiver(NumberedSender::receiverConfiguration(1));
    CapturedOutput output;
    flood.start();
    ASSERT_TRUE(flood.awaitSent(1));

    startAndStop(THREAD_SANITIZER ? 100 : 1000, receiver, true);

    EXPECT_TRUE(flood.awaitSent(flood.sentCount() + 1000));
}

TEST_F(LifecycleTest, FiftyQuietStartsAndStopsLeaveNoThreadAndNoDescriptor)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    TestInterface receiver({1, 0x10, CAN_STANDARD, {}});
    CapturedOutput output;

    startAndStop(50, receiver, false);
}

TEST_F(LifecycleTest, HundredFailedStartsLeaveNoThreadAndNoDescriptor)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    logger->setDeviceMissing(EXTENSION_DEVICE, true);
    TestInterface receiver({1, 0x10, CAN_STANDARD, {}});
    receiver.configure();
    CapturedOutput output;
    const Census before = settledCensus();

    for (int i = 0; i < 100; ++i) {
        dispatcher().setOnline();
        ASSERT_EQ(receiver.callback.nextStatus(), 4);
        ASSERT_EQ(receiver.callback.nextStatus(), 2);
    }

    EXPECT_TRUE(becomesTrue([&] { return Census::take() == before; })) << Census::take() << ", was " << before;
}

TEST_F(LifecycleTest, FloodIntoAnInactiveDeviceGoesOnAndTheReaderComesBack)
{
    vlogger::Options options = optionsFor(vlogger::board::PLAIN);
    options.stallLimit = milliseconds(100);
    startLogger(options);
    FloodSender flood(0);
    TestInterface receiver(NumberedSender::receiverConfiguration(1));
    receiver.configure();
    CapturedOutput output;
    dispatcher().setOnline();
    ASSERT_EQ(receiver.callback.nextStatus(), 1);

    flood.start();
    EXPECT_TRUE(becomesTrue([this] { return logger->statistics().framesDropped > 1000; }));
    EXPECT_EQ(receiver.callback.frames.count(), 0U);

    receiver.configure();
    EXPECT_TRUE(receiver.callback.frames.waitForCount(1000));
    expectStopWithinOneWait();
}

TEST_F(LifecycleTest, StopWithAFloodedInactiveDeviceReturnsWithinOneWait)
{
    startLogger(vlogger::board::PLAIN);
    FloodSender flood(0);
    TestInterface receiver(NumberedSender::receiverConfiguration(1));
    receiver.configure();
    CapturedOutput output;
    dispatcher().setOnline();
    ASSERT_EQ(receiver.callback.nextStatus(), 1);
    flood.start();
    ASSERT_TRUE(flood.awaitSent(1000));

    expectStopWithinOneWait();
    EXPECT_TRUE(flood.awaitSent(flood.sentCount() + 100'000)); // the stream has gone, nothing holds the sender
}

TEST_F(LifecycleTest, ReadyInactiveDeviceMakesTheWaitReturnAtOnceAndIsNotRead)
{
    startLogger(vlogger::board::PLAIN);
    TestInterface sender({0, 0x10, CAN_STANDARD, {}});
    TestInterface receiver({1, 0x10, CAN_STANDARD, {}});
    sender.configure();
    receiver.configure();
    CapturedOutput output;
    dispatcher().setOnline();
    ASSERT_EQ(receiver.callback.nextStatus(), 1);

    ASSERT_EQ(sender.send({1}), 0);

    // A thousand waits that ran to their end would take five minutes.
    EXPECT_TRUE(pselectwatch::awaitReady(1000, seconds(30)));
    EXPECT_EQ(receiver.callback.frames.count(), 0U);
    receiver.configure();
    EXPECT_TRUE(receiver.callback.frames.waitForCount(1));
    EXPECT_TRUE(pselectwatch::awaitTimeouts(1, seconds(30)));
    dispatcher().setOffline();
}

/// Answers every frame from inside the callback.
class AnsweringCallback : public FrameCallback
{
public:
    explicit AnsweringCallback(TestInterface& answeringInterface) : answer(answeringInterface) {}

    void onDataReceived(const uint8_t* data, size_t size) override
    {
        failures += answer.can.send(data, 8) == 0 ? 0 : 1;
        FrameCallback::onDataReceived(data, size);
    }

    std::atomic<unsigned> failures{0};

private:
    TestInterface& answer;
};

TEST_F(LifecycleTest, SendingFromTheCallbackUnderFloodDoesNotHang)
{
    constexpr size_t FRAMES = THREAD_SANITIZER ? 5'000 : 50'000;
    // Queues that are full most of the time: the callback waits for room that only its own thread can make.
    vlogger::Options options = optionsFor(vlogger::board::PLAIN);
    options.streamQueueBytes = 64U << 10;
    options.stallLimit = milliseconds(20);
    startLogger(options);
    FloodSender firstFlood(0);
    FloodSender secondFlood(0);
    TestInterface answer({1, 0x700, CAN_STANDARD, {}});
    TestInterface answerReceiver({0, 0x700, CAN_STANDARD, {}});
    AnsweringCallback callback(answer);
    TestInterface receiver(NumberedSender::receiverConfiguration(1));
    receiver.can.callbacks.insert(&callback);
    CapturedOutput output;
    goOnline({&answer, &answerReceiver, &receiver});

    firstFlood.start();
    secondFlood.start();

    EXPECT_TRUE(callback.frames.waitForCount(FRAMES));
    EXPECT_TRUE(answerReceiver.callback.frames.waitForCount(100));
    expectStopWithinOneWait();
    EXPECT_EQ(callback.failures, 0U);
    firstFlood.stop();
    secondFlood.stop();
}

} // namespace
