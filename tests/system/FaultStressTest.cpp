#include "FloodSender.h"
#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Program.h>

#include <csignal>

namespace {

class FaultStressTest : public SystemTest
{
};

TEST_F(FaultStressTest, TrafficComesBackEachTimeTheLoggerIsKilledInTheMiddleOfSomething)
{
    FloodSender flood(2);
    TestInterface receiver(NumberedSender::receiverConfiguration(3));
    CapturedOutput output;
    bool started = false;

    for (int i = 0; i < 200; ++i) {
        Program outside(LOGGER_PROGRAM, {socketPath, "extension"});
        ASSERT_TRUE(outside.awaitLine("ready"));
        transmitter().close();
        ASSERT_EQ(transmitter().open(), 0) << i;
        dispatcher().setOffline();
        receiver.callback.statuses.clear();
        receiver.configure();
        dispatcher().setOnline();
        if (i % 4 == 0) { // in the middle of opening the devices
            outside.signal(SIGKILL);
            ASSERT_TRUE(receiver.callback.statuses.waitForCount(1)) << i;
            continue;
        }
        ASSERT_TRUE(receiver.callback.statuses.waitForCount(1)) << i;
        ASSERT_EQ(receiver.callback.statuses.all().front(), 1) << i;
        receiver.configure();
        if (!started) {
            flood.start();
            started = true;
        }
        flood.resume();
        const size_t frames = receiver.callback.frames.count();
        ASSERT_TRUE(receiver.callback.frames.waitForCount(frames + 1 + static_cast<size_t>(i % 50))) << i;
        outside.signal(SIGKILL);
        ASSERT_TRUE(flood.awaitFailure()) << i;
    }
    flood.stop();
    dispatcher().setOffline();
}

} // namespace
