#include <vlogger/ReplaySchedule.h>

#include <gtest/gtest.h>

#include <limits>

namespace tool {

using namespace std::chrono_literals;

TEST(ReplayScheduleTest, FrameIsDueAtItsPlaceBehindTheStart)
{
    const ReplaySchedule sut(10s, 1);
    EXPECT_EQ(sut.dueAt(0), 10s);
    EXPECT_EQ(sut.dueAt(1), 10s + 1us);
    EXPECT_EQ(sut.dueAt(3600000000), 10s + 1h);
}

TEST(ReplayScheduleTest, SpeedDividesThePlaceAndNotTheStart)
{
    EXPECT_EQ(ReplaySchedule(10s, 4).dueAt(2000000), 10s + 500ms);
    EXPECT_EQ(ReplaySchedule(10s, 0.5).dueAt(2000000), 14s);
}

TEST(ReplayScheduleTest, AtFullSpeedEverythingIsDueAtOnce)
{
    const ReplaySchedule sut(10s, 0);
    EXPECT_FALSE(sut.isPaced());
    EXPECT_EQ(sut.dueAt(2000000), 10s);
}

TEST(ReplayScheduleTest, PlaceBeyondAllTimeDoesNotOverflow)
{
    const auto thirtyYears = std::chrono::nanoseconds(1000000000000000000);
    EXPECT_EQ(ReplaySchedule(10s, 1).dueAt(std::numeric_limits<uint64_t>::max()), 10s + thirtyYears);
    EXPECT_EQ(ReplaySchedule(10s, 1e-300).dueAt(1000000), 10s + thirtyYears);
}

TEST(LatenessTest, WithoutFramesEverythingIsZero)
{
    const Lateness sut;
    EXPECT_EQ(sut.count(), 0U);
    EXPECT_EQ(sut.meanUs(), 0);
    EXPECT_EQ(sut.worstUs(), 0);
    EXPECT_EQ(sut.lateFrames(), 0U);
}

TEST(LatenessTest, MeanWorstAndLateFramesAreCounted)
{
    Lateness sut;
    sut.add(100us);
    sut.add(1ms);
    sut.add(1001us);
    EXPECT_EQ(sut.count(), 3U);
    EXPECT_DOUBLE_EQ(sut.meanUs(), 2101.0 / 3);
    EXPECT_DOUBLE_EQ(sut.worstUs(), 1001);
    EXPECT_EQ(sut.lateFrames(), 1U);
}

} // namespace tool
