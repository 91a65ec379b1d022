#include <Receiver.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace {

constexpr RowKey FIRST{0, 0x123};
constexpr RowKey SECOND{2, 0x123};
constexpr std::chrono::milliseconds AT_ONCE{0};
constexpr std::chrono::milliseconds LONG{30'000};

} // namespace

TEST(RawCanArrivalsTest, EveryRowCompleteEndsTheWaitAtOnce)
{
    Arrivals sut;
    sut.add(FIRST);
    sut.add(SECOND);
    EXPECT_TRUE(sut.waitFor({{FIRST, 1}, {SECOND, 1}}, AT_ONCE));
}

TEST(RawCanArrivalsTest, LastMissingFrameEndsTheWait)
{
    Arrivals sut;
    sut.add(FIRST);
    auto wait = std::async(std::launch::async, [&] { return sut.waitFor({{FIRST, 1}, {SECOND, 2}}, LONG); });
    sut.add(SECOND);
    sut.add(SECOND);
    EXPECT_TRUE(wait.get());
}

TEST(RawCanArrivalsTest, SurplusOfOneRowDoesNotStandForAnother)
{
    Arrivals sut;
    sut.add(FIRST);
    sut.add(FIRST);
    EXPECT_FALSE(sut.waitFor({{FIRST, 1}, {SECOND, 1}}, AT_ONCE));
}
