#include <vlogger/ReplayPlayer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace tool {

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr uint64_t ALL = std::numeric_limits<uint64_t>::max();
constexpr nanoseconds START = 10s;

/// Time that passes only by waiting and by what a test adds.
class FakeClock : public ReplayClock
{
public:
    nanoseconds now() override { return time; }
    bool waitUntil(nanoseconds due, const std::function<void()>& look) override
    {
        look();
        if (due > time) {
            time = due + oversleep;
        }
        return waitsLeft-- > 0;
    }

    nanoseconds time = START;
    nanoseconds oversleep{0};
    int waitsLeft = 1000000;
};

/// Plays a capture of frames of one channel, which tell apart by their identifier: the place in the capture.
class ReplayPlayerTest : public testing::Test
{
protected:
    using Sent = std::vector<std::pair<uint32_t, nanoseconds>>;

    void make(double speed, uint64_t fromUs = 0, uint64_t toUs = ALL)
    {
        sut.emplace(clock, speed, ReplayPlayer::Part{.fromUs = fromUs, .toUs = toUs},
                    [this](const capture::CandumpFrame& frame) {
                        clock.time += sendTakes[frame.id];
                        sent.emplace_back(frame.id, clock.time - START);
                        return frame.id != unsendable;
                    });
    }

    bool play(const std::vector<uint64_t>& timesUs)
    {
        size_t place = 0;
        return sut->play(
            [&](capture::CaptureFrame& frame) {
                if (place == timesUs.size()) {
                    return false;
                }
                clock.time += readTakes[place];
                frame.frame.timestampUs = timesUs[place];
                frame.frame.id = static_cast<uint32_t>(place);
                ++place;
                readFrames = std::max(readFrames, place);
                return true;
            },
            [] {});
    }

    FakeClock clock;
    std::optional<ReplayPlayer> sut;
    std::map<uint32_t, nanoseconds> sendTakes; ///< by identifier
    std::map<size_t, nanoseconds> readTakes;   ///< by place in the capture
    uint32_t unsendable = 99;                  ///< identifier for which there is nothing to send
    size_t readFrames = 0;
    Sent sent; ///< identifier and time behind the start
};

} // namespace

TEST_F(ReplayPlayerTest, FramesGoOutAtTheirDistancesFromTheFirst)
{
    make(1);
    EXPECT_TRUE(play({5000000, 5010000, 5200000}));
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 10ms}, {2, 200ms}}));
    EXPECT_EQ(sut->framesSent(), 3U);
    EXPECT_EQ(sut->lateness().worstUs(), 0);
}

TEST_F(ReplayPlayerTest, SpeedDividesTheDistances)
{
    make(4);
    play({0, 40000});
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 10ms}}));
}

TEST_F(ReplayPlayerTest, FramesBehindADelayedOneAreBackOnScheduleAsSoonAsTheyCan)
{
    make(1);
    sendTakes[1] = 25ms;
    play({0, 10000, 20000, 30000, 40000, 50000});
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 35ms}, {2, 35ms}, {3, 35ms}, {4, 40ms}, {5, 50ms}}));
}

TEST_F(ReplayPlayerTest, LatenessReportedIsThatOfTheDelayAndNoMore)
{
    make(1);
    sendTakes[1] = 25ms;
    play({0, 10000, 20000, 30000, 40000, 50000});
    EXPECT_EQ(sut->lateness().worstUs(), 25000);
    EXPECT_EQ(sut->lateness().meanUs(), (25000 + 15000 + 5000) / 6.0);
    EXPECT_EQ(sut->lateness().lateFrames(), 3U);
    EXPECT_EQ(sut->lateness().count(), 6U);
}

TEST_F(ReplayPlayerTest, WaitsThatAllEndLateDoNotAddUp)
{
    make(1);
    clock.oversleep = 100us;
    std::vector<uint64_t> timesUs;
    for (uint64_t i = 0; i < 10000; ++i) {
        timesUs.push_back(i * 1000);
    }
    play(timesUs);
    EXPECT_EQ(sent.back(), (std::pair<uint32_t, nanoseconds>(9999, 9999ms + 100us)));
    EXPECT_EQ(sut->lateness().worstUs(), 100);
    EXPECT_EQ(sut->lateness().lateFrames(), 0U);
}

TEST_F(ReplayPlayerTest, SecondRoundBeginsWhereTheFirstEnds)
{
    make(1);
    const std::vector<uint64_t> timesUs{7000000, 7010000, 7030000};
    EXPECT_TRUE(play(timesUs));
    EXPECT_TRUE(play(timesUs));
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 10ms}, {2, 30ms}, {0, 30ms}, {1, 40ms}, {2, 60ms}}));
}

TEST_F(ReplayPlayerTest, DelayBetweenTwoRoundsIsMadeUp)
{
    make(1);
    const std::vector<uint64_t> timesUs{0, 10000, 30000};
    play(timesUs);
    readTakes[0] = 15ms;
    play(timesUs);
    readTakes.clear();
    play(timesUs);
    EXPECT_EQ(
        sent,
        (Sent{{0, 0ms}, {1, 10ms}, {2, 30ms}, {0, 45ms}, {1, 45ms}, {2, 60ms}, {0, 60ms}, {1, 70ms}, {2, 90ms}}));
    EXPECT_EQ(sut->lateness().worstUs(), 15000);
}

TEST_F(ReplayPlayerTest, RoundsOfASingleTimeStartWhenTheyAreThere)
{
    make(1);
    sendTakes[0] = 5ms;
    for (int round = 0; round < 100; ++round) {
        play({3000000});
    }
    EXPECT_EQ(sut->framesSent(), 100U);
    EXPECT_EQ(sut->lateness().worstUs(), 5000);
}

TEST_F(ReplayPlayerTest, PartBeginsAtItsFirstMicrosecondAndReadingUpToItIsNoLateness)
{
    make(1, 20000);
    readTakes[1] = 3s;
    play({0, 10000, 19999, 20000, 25000});
    EXPECT_EQ(sent, (Sent{{3, 3s}, {4, 3s + 5ms}}));
    EXPECT_EQ(sut->lateness().worstUs(), 0);
}

TEST_F(ReplayPlayerTest, PartThatBeginsBetweenTwoFramesStartsWithTheSecond)
{
    make(1, 15000);
    play({0, 10000, 20000, 30000});
    EXPECT_EQ(sent, (Sent{{2, 5ms}, {3, 15ms}}));
}

TEST_F(ReplayPlayerTest, PartEndsWithItsLastMicrosecond)
{
    make(1, 0, 20000);
    play({0, 20000, 20001, 19999});
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 20ms}, {3, 20ms}}));
}

TEST_F(ReplayPlayerTest, PartOfOneMomentHasTheFrameThere)
{
    make(1, 10000, 10000);
    play({0, 10000, 20000});
    EXPECT_EQ(sent, (Sent{{1, 0ms}}));
}

TEST_F(ReplayPlayerTest, PartBehindTheEndHasNoFrameAndTheLengthIsKnown)
{
    make(1, 30000);
    EXPECT_TRUE(play({0, 20000}));
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(sut->lengthUs(), 20000U);
}

TEST_F(ReplayPlayerTest, CaptureWithoutFramesHasNoLength)
{
    make(1);
    EXPECT_TRUE(play({}));
    EXPECT_FALSE(sut->lengthUs());
}

TEST_F(ReplayPlayerTest, RestBehindThePartIsNotRead)
{
    make(1, 0, 20000);
    play({0, 1020000, 1020001, 1, 2, 3});
    EXPECT_EQ(readFrames, 3U);
}

TEST_F(ReplayPlayerTest, FrameBehindALaterOneFollowsItAtOnceAndIsNotLate)
{
    make(1);
    play({1000000, 1020000, 1010000, 500000, 1030000});
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 20ms}, {2, 20ms}, {3, 20ms}, {4, 30ms}}));
    EXPECT_EQ(sut->lateness().worstUs(), 0);
}

TEST_F(ReplayPlayerTest, FrameThatCannotBeSentIsNeitherCountedNorLate)
{
    make(1);
    unsendable = 1;
    sendTakes[1] = 5ms;
    EXPECT_TRUE(play({0, 10000, 20000}));
    EXPECT_EQ(sut->framesSent(), 2U);
    EXPECT_EQ(sut->lateness().count(), 2U);
    EXPECT_EQ(sut->lateness().worstUs(), 0);
}

TEST_F(ReplayPlayerTest, WithoutASpeedNothingWaitsAndNothingIsLate)
{
    make(0);
    clock.waitsLeft = 0;
    EXPECT_TRUE(play({0, 1000000000}));
    EXPECT_EQ(sent, (Sent{{0, 0ms}, {1, 0ms}}));
    EXPECT_EQ(sut->lateness().count(), 0U);
}

TEST_F(ReplayPlayerTest, StopWhileWaitingSendsNothingMore)
{
    make(1);
    clock.waitsLeft = 1;
    EXPECT_FALSE(play({0, 10000, 20000}));
    EXPECT_EQ(sent, (Sent{{0, 0ms}}));
}

} // namespace tool
