#include <vlogger/TimeLimit.h>

#include <gtest/gtest.h>

#include <limits>

using namespace std::chrono_literals;

namespace {

class TimeLimitTest : public ::testing::Test
{
protected:
    tool::TimeLimit limitOf(double seconds)
    {
        return tool::TimeLimit(seconds, [this] { return now; });
    }

    tool::TimeLimit::Clock::time_point now{100s};
};

TEST_F(TimeLimitTest, WithoutALimitItIsNeverOver)
{
    const auto sut = limitOf(0);
    now += 24h * 365;
    EXPECT_FALSE(sut.exists());
    EXPECT_FALSE(sut.isOver());
    EXPECT_EQ(sut.passedShare(), 0);
    EXPECT_EQ(sut.remainingMs(-1), -1);
    EXPECT_EQ(sut.remainingMs(200), 200);
}

TEST_F(TimeLimitTest, ItIsOverAtItsEndAndNotBefore)
{
    const auto sut = limitOf(2);
    now += 1999ms;
    EXPECT_FALSE(sut.isOver());
    now += 1ms;
    EXPECT_TRUE(sut.isOver());
}

TEST_F(TimeLimitTest, ShareGrowsToTheWhole)
{
    const auto sut = limitOf(4);
    EXPECT_EQ(sut.passedShare(), 0);
    now += 1s;
    EXPECT_EQ(sut.passedShare(), 0.25);
    now += 1h;
    EXPECT_EQ(sut.passedShare(), 1);
}

TEST_F(TimeLimitTest, RemainingTimeIsRoundedUp)
{
    const auto sut = limitOf(1);
    now += 999'999us;
    EXPECT_EQ(sut.remainingMs(-1), 1);
}

TEST_F(TimeLimitTest, NothingRemainsBehindTheEnd)
{
    const auto sut = limitOf(1);
    now += 1h;
    EXPECT_EQ(sut.remainingMs(-1), 0);
}

TEST_F(TimeLimitTest, WaitIsNoLongerThanAskedFor)
{
    EXPECT_EQ(limitOf(1).remainingMs(200), 200);
}

TEST_F(TimeLimitTest, YearsDoNotOverflow)
{
    EXPECT_EQ(limitOf(1e9).remainingMs(-1), std::numeric_limits<int>::max());
}

} // namespace
