#include <capture/Counted.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace capture {

TEST(CountedTest, OneAloneIsSingular)
{
    EXPECT_EQ(countedFrames(1), "1 frame");
    EXPECT_EQ(counted(1, "frame is", "frames are"), "1 frame is");
}

TEST(CountedTest, NoneManyAndTheLargestCountArePlural)
{
    EXPECT_EQ(countedFrames(0), "0 frames");
    EXPECT_EQ(countedFrames(2), "2 frames");
    EXPECT_EQ(counted(11, "frame is", "frames are"), "11 frames are");
    EXPECT_EQ(countedFrames(UINT64_MAX), "18446744073709551615 frames");
}

} // namespace capture
