#include "FloodSender.h"
#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Program.h>
#include <support/Sanitizer.h>
#include <support/Waiting.h>

#include <csignal>

namespace {

/// Several processes on one virtual logger.
class ProcessTest : public SystemTest
{
protected:
    /// A child that ends after `count` frames of identifier 0x100.
    static std::vector<std::string> receiving(unsigned channel, unsigned count)
    {
        return {"receive", std::to_string(channel), "256", std::to_string(count)};
    }
    static std::vector<std::string> sending(unsigned channel, unsigned count)
    {
        return {"send", std::to_string(channel), "256", std::to_string(count)};
    }
    static constexpr unsigned NEVER = 1'000'000'000;

    TestInterface sender{{0, 0x100, CAN_STANDARD, {}}};
    TestInterface receiver{{1, 0x100, CAN_STANDARD, {}}};
};

TEST_F(ProcessTest, TwoProcessesReceiveTheSameFrames)
{
    constexpr unsigned FRAMES = 2000;
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    Program peer(PEER_PROGRAM, receiving(1, FRAMES));
    ASSERT_TRUE(peer.awaitLine("online"));
    goOnline({&sender, &receiver});

    for (unsigned i = 0; i < FRAMES; ++i) {
        ASSERT_EQ(sender.send({static_cast<uint8_t>(i)}), 0);
    }

    EXPECT_TRUE(receiver.callback.frames.waitForCount(FRAMES));
    EXPECT_EQ(peer.awaitEnd(), 0);
    EXPECT_EQ(peer.errorLines(), std::vector<std::string>{});
    goOffline({&sender, &receiver});
}

TEST_F(ProcessTest, FramesOfAnotherProcessArriveInOrder)
{
    constexpr unsigned FRAMES = 2000;
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    goOnline({&receiver});
    Program peer(PEER_PROGRAM, sending(0, FRAMES));

    peer.closeInput();

    ASSERT_TRUE(receiver.callback.frames.waitForCount(FRAMES));
    EXPECT_EQ(peer.awaitEnd(), 0);
    const std::vector<ReceivedFrame> frames = receiver.callback.frames.all();
    for (unsigned i = 0; i < FRAMES; ++i) {
        const std::vector<uint8_t> payload{static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        ASSERT_EQ(frames[i].payload, payload);
    }
    goOffline({&receiver});
}

TEST_F(ProcessTest, EightSendingProcessesLoseNothingOnOneBus)
{
    constexpr unsigned FRAMES = THREAD_SANITIZER ? 1'000 : 20'000;
    vlogger::Options options = optionsFor(vlogger::board::PLAIN);
    options.buses = {{1, 2, 3, 4, 5, 6, 7, 8, 9}};
    options.streamQueueBytes = 64U << 10;
    startLogger(options);
    CapturedOutput output;
    goOnline({&receiver});
    std::vector<std::unique_ptr<Program>> peers;
    for (unsigned channel = 2; channel < 10; ++channel) {
        peers.push_back(std::make_unique<Program>(PEER_PROGRAM, sending(channel, FRAMES)));
    }

    for (const auto& peer : peers) {
        peer->closeInput();
    }

    EXPECT_TRUE(receiver.callback.frames.waitForCount(8 * FRAMES));
    for (const auto& peer : peers) {
        EXPECT_EQ(peer->awaitEnd(), 0);
    }
    EXPECT_EQ(logger->statistics().framesDropped, 0U);
    goOffline({&receiver});
    EXPECT_EQ(receiver.callback.frames.count(), 8 * FRAMES);
}

TEST_F(ProcessTest, StoppedReceiverHoldsUpNobodyForLong)
{
    constexpr uint64_t FRAMES = THREAD_SANITIZER ? 20'000 : 200'000;
    vlogger::Options options = optionsFor(vlogger::board::PLAIN);
    options.streamQueueBytes = 64U << 10;
    // Far above what a busy machine keeps this process's own reader waiting, which must lose nothing.
    options.stallLimit = std::chrono::seconds(3);
    startLogger(options);
    CapturedOutput output;
    Program peer(PEER_PROGRAM, receiving(1, NEVER));
    ASSERT_TRUE(peer.awaitLine("online"));
    NumberedReceiver numbered(1);
    FloodSender flood(0);
    numbered.configure();
    dispatcher().setOnline();
    ASSERT_EQ(numbered.nextStatus(), 1);
    numbered.configure();

    peer.signal(SIGSTOP);
    flood.start();

    EXPECT_TRUE(flood.awaitSent(FRAMES));
    flood.stop();
    EXPECT_EQ(numbered.awaitFrames(static_cast<uint32_t>(flood.sentCount()), std::chrono::seconds(60)), "");
    EXPECT_GT(logger->statistics().framesDropped, 0U);
    dispatcher().setOffline();
}

TEST_F(ProcessTest, KilledReceiverAndKilledSenderLeaveTheOthersTheirTraffic)
{
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    NumberedReceiver numbered(1);
    FloodSender flood(0);
    TestInterface fromPeer({3, 0x100, CAN_STANDARD, {}});
    fromPeer.configure();
    numbered.configure();
    dispatcher().setOnline();
    ASSERT_EQ(numbered.nextStatus(), 1);
    numbered.configure();
    flood.start();

    for (int i = 0; i < 5; ++i) {
        Program reader(PEER_PROGRAM, receiving(1, NEVER));
        Program writer(PEER_PROGRAM, sending(2, NEVER));
        writer.closeInput();
        EXPECT_TRUE(reader.awaitLine("online"));
        EXPECT_TRUE(fromPeer.callback.frames.waitForCount(100));
        reader.signal(SIGKILL);
        writer.signal(SIGKILL);
        EXPECT_EQ(reader.awaitEnd(), -SIGKILL);
        EXPECT_EQ(writer.awaitEnd(), -SIGKILL);
        // What the writer had sent is on its way still.
        EXPECT_TRUE(becomesTrue([this] { return logger->statistics().writers == 1; }));
        fromPeer.callback.frames.clear();
    }

    flood.stop();
    EXPECT_EQ(numbered.awaitFrames(static_cast<uint32_t>(flood.sentCount()), std::chrono::seconds(60)), "");
    EXPECT_TRUE(becomesTrue([this] { return logger->statistics().readers == 1; }));
    dispatcher().setOffline();
}

} // namespace
