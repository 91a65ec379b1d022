#include "NumberedFrames.h"
#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Sanitizer.h>

#include <atomic>
#include <thread>

namespace {

constexpr uint8_t CHANNELS = 15;
/// Frames per channel, a million in all. With the thread sanitizer a frame takes some twenty times as long.
constexpr uint32_t FRAMES = THREAD_SANITIZER ? 10'000 : 66'667;
/// How often a receiver comes and goes meanwhile.
constexpr uint32_t VISITS = THREAD_SANITIZER ? 60 : 300;
constexpr std::chrono::seconds TRAFFIC_LIMIT{100};

/// Fifteen buses with two channels each, on both devices of a board with extension: n and 15 + n. The even ones
/// carry frames upwards, the odd ones downwards.
class TrafficTest : public SystemTest
{
protected:
    TrafficTest()
    {
        vlogger::Options options = optionsFor(vlogger::board::WITH_EXTENSION);
        for (uint8_t i = 0; i < CHANNELS; ++i) {
            const auto partner = static_cast<uint8_t>(CHANNELS + i);
            options.buses.push_back({i, partner});
            const bool upwards = i % 2 == 0;
            senders.push_back(std::make_unique<NumberedSender>(upwards ? i : partner));
            receivers.push_back(std::make_unique<NumberedReceiver>(upwards ? partner : i));
        }
        startLogger(options);
    }

    ~TrafficTest() override
    {
        endOfVisits = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void goOnline()
    {
        for (const auto& sender : senders) {
            sender->configure();
        }
        for (const auto& receiver : receivers) {
            receiver->configure();
        }
        dispatcher().setOnline();
        for (const auto& receiver : receivers) {
            ASSERT_EQ(receiver->nextStatus(), 1);
        }
        activateDevices();
    }

    /// A registration on one channel activates its whole device: channel 15 for the extension, channel 1 for the
    /// main one.
    void activateDevices()
    {
        receivers[0]->configure();
        receivers[1]->configure();
    }

    /// Lets every channel send at once, a thread for each: so many frames, and then until the end of the visits.
    void startSending()
    {
        sent.assign(senders.size(), 0);
        for (size_t i = 0; i < senders.size(); ++i) {
            threads.emplace_back([this, i] {
                while (sent[i] < FRAMES || !endOfVisits) {
                    failures += senders[i]->sendNext() == 0 ? 0 : 1;
                    ++sent[i];
                }
            });
        }
    }

    /// Everything that was sent has arrived, in order, and nothing else.
    void checkArrival(uint64_t startTimeUs)
    {
        endOfVisits = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        uint64_t total = 0;
        for (size_t i = 0; i < receivers.size(); ++i) {
            EXPECT_EQ(receivers[i]->awaitFrames(sent[i], TRAFFIC_LIMIT), "");
            EXPECT_EQ(receivers[i]->frameCount(), sent[i]);
            EXPECT_GE(receivers[i]->firstTimestampUs(), startTimeUs);
            EXPECT_LE(receivers[i]->lastTimestampUs(), systemTimeUs());
            total += sent[i];
        }
        EXPECT_EQ(failures, 0U);
        EXPECT_EQ(logger->statistics().framesIn, total);
        EXPECT_EQ(logger->statistics().framesDropped, 0U);
    }

    std::vector<std::unique_ptr<NumberedSender>> senders;
    std::vector<std::unique_ptr<NumberedReceiver>> receivers;
    std::vector<uint32_t> sent; ///< per sender; written by its thread
    std::atomic<unsigned> failures{0};
    std::atomic<bool> endOfVisits{false};
    std::vector<std::thread> threads;
};

TEST_F(TrafficTest, MillionFramesOnFifteenChannelsArriveCompleteAndInOrder)
{
    CapturedOutput output;
    goOnline();
    const uint64_t startTimeUs = systemTimeUs();
    endOfVisits = true;

    startSending();

    checkArrival(startTimeUs);
    dispatcher().setOffline();
}

TEST_F(TrafficTest, NothingIsLostWhileReceiversComeAndGo)
{
    CapturedOutput output;
    goOnline();
    const uint64_t startTimeUs = systemTimeUs();
    startSending();

    for (uint32_t i = 0; i < VISITS; ++i) {
        {
            TestInterface visitor(receivers[i % CHANNELS]->configuration);
            visitor.configure();
            ASSERT_TRUE(visitor.callback.nextFrame()) << "visit " << i;
        }
        // The visitor's end has silenced every channel. What arrives meanwhile waits in the devices.
        activateDevices();
    }

    checkArrival(startTimeUs);
    dispatcher().setOffline();
}

} // namespace
