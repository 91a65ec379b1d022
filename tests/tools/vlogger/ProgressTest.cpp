#include <vlogger/Progress.h>

#include <gtest/gtest.h>
#include <support/CapturedOutput.h>

namespace tool {

TEST(ProgressTest, RateAndRemainingTimeAreSaid)
{
    EXPECT_EQ(progressText("replaying", 1000, 2, 0.25), "replaying 1000 frames, 500/s, 25 %, 0:06 left");
}

TEST(ProgressTest, RemainingTimeIsInMinutesAndSeconds)
{
    EXPECT_EQ(progressText("replaying", 10, 10, 0.1), "replaying 10 frames, 1/s, 10 %, 1:30 left");
    EXPECT_EQ(progressText("replaying", 100, 100, 0.01), "replaying 100 frames, 1/s, 1 %, 165:00 left");
}

TEST(ProgressTest, AtTheEndNothingIsLeft)
{
    EXPECT_EQ(progressText("converting", 8, 4, 1), "converting 8 frames, 2/s, 100 %, 0:00 left");
}

TEST(ProgressTest, UnknownEndIsLeftOut)
{
    EXPECT_EQ(progressText("recording", 8, 4, -1), "recording 8 frames, 2/s");
    EXPECT_EQ(progressText("recording", 8, 4, 0), "recording 8 frames, 2/s");
    EXPECT_EQ(progressText("recording", 8, 4, 1.5), "recording 8 frames, 2/s");
}

TEST(ProgressTest, BeforeAnyTimeHasPassedThereIsNoRate)
{
    EXPECT_EQ(progressText("recording", 0, 0, -1), "recording 0 frames");
}

TEST(ProgressTest, NothingIsWrittenWhereStandardErrorIsNoTerminal)
{
    CapturedOutput output;
    {
        Progress sut("recording");
        sut.show(1, 0.5);
        sut.update(0, [] { return 0.5; });
    }
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(output.out(), "");
}

} // namespace tool
