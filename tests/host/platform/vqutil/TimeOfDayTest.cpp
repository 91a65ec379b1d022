#include <vqutil/TimeOfDay.h>

#include "vqutil/TimeOfDayClock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

constexpr uint64_t DAY_US = 86'400'000'000;

uint64_t fakeNowUs = 0;

uint64_t fakeClock() noexcept
{
    return fakeNowUs;
}

class TimeOfDayTest : public testing::Test
{
protected:
    void useFakeClock(uint64_t nowUs)
    {
        fakeNowUs = nowUs;
        vqhost::setEpochClock(fakeClock);
    }

    ~TimeOfDayTest() override { vqhost::setEpochClock(nullptr); }
};

} // namespace

TEST_F(TimeOfDayTest, StartsAtZeroAtMidnight)
{
    useFakeClock(20'000 * DAY_US);

    EXPECT_EQ(getMicroSecondsOfDay(), 0U);
}

TEST_F(TimeOfDayTest, LastMicrosecondOfTheDayIsTheLargestValue)
{
    useFakeClock(20'000 * DAY_US + DAY_US - 1);

    EXPECT_EQ(getMicroSecondsOfDay(), 86'399'999'999U);
}

TEST_F(TimeOfDayTest, CountsMicroseconds)
{
    useFakeClock(3 * DAY_US + 3'600'000'123);

    EXPECT_EQ(getMicroSecondsOfDay(), 3'600'000'123U);
}

TEST_F(TimeOfDayTest, FollowsTheSystemClockInUtc)
{
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &before);
    const uint64_t now = getMicroSecondsOfDay();
    clock_gettime(CLOCK_REALTIME, &after);

    const auto ofDay = [](const timespec& time) {
        return (static_cast<uint64_t>(time.tv_sec) * 1'000'000 + static_cast<uint64_t>(time.tv_nsec) / 1000) %
               DAY_US;
    };
    if (ofDay(before) <= ofDay(after)) { // else midnight passed in between
        EXPECT_GE(now, ofDay(before));
        EXPECT_LE(now, ofDay(after));
    }
}

TEST_F(TimeOfDayTest, NullClockBringsTheSystemClockBack)
{
    useFakeClock(17);
    vqhost::setEpochClock(nullptr);

    EXPECT_NE(getMicroSecondsOfDay(), 17U);
}
