#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Census.h>
#include <support/Waiting.h>

namespace {

class LifecycleStressTest : public SystemTest
{
};

TEST_F(LifecycleStressTest, ThousandQuietStartsAndStopsLeaveNoThreadAndNoDescriptor)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    TestInterface receiver({1, 0x10, CAN_STANDARD, {}});
    CapturedOutput output;
    receiver.configure();
    const Census before = settledCensus();

    for (int i = 0; i < 1000; ++i) {
        goOnline({&receiver});
        goOffline({&receiver});
    }

    EXPECT_TRUE(becomesTrue([&] { return Census::take() == before; })) << Census::take() << ", was " << before;
}

} // namespace
