#include <Report.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

const Traffic TRAFFIC{.channels = {}, .senders = {}, .frames = 0, .remoteFrames = 3, .errorFrames = 2};

} // namespace

TEST(RawCanReportTest, EveryColumnAndTheTotalsAreCounted)
{
    const Outcome outcome{.sent = {{{0, 0x123}, 100}, {{2, 0x123 | EXTENDED_ID_BIT}, 50}},
                          .received = {{{0, 0x123}, 100}, {{2, 0x123 | EXTENDED_ID_BIT}, 50}},
                          .refused = 0,
                          .duration = std::chrono::seconds(2)};
    std::ostringstream stream;
    EXPECT_EQ(printReport(stream, TRAFFIC, outcome), 0U);
    EXPECT_EQ(stream.str(), "channel    identifier       sent   received       lost         rate\n"
                            "0 -> 1     123               100        100          0         50/s\n"
                            "2 -> 3     00000123           50         50          0         25/s\n"
                            "total                        150        150          0         75/s\n"
                            "skipped: 3 remote frames, 2 error frames\n");
}

TEST(RawCanReportTest, FramesThatDidNotArriveAreLost)
{
    const Outcome outcome{.sent = {{{0, 0x123}, 100}, {{0, 0x124}, 7}},
                          .received = {{{0, 0x123}, 99}},
                          .refused = 0,
                          .duration = std::chrono::seconds(1)};
    std::ostringstream stream;
    EXPECT_EQ(printReport(stream, TRAFFIC, outcome), 8U);
    EXPECT_NE(stream.str().find("0 -> 1     123               100         99          1         99/s\n"
                                "0 -> 1     124                 7          0          7          0/s\n"
                                "total                        107         99          8         99/s\n"),
              std::string::npos);
}

TEST(RawCanReportTest, SurplusFramesOfOthersHideNoLoss)
{
    const Outcome outcome{.sent = {{{0, 0x123}, 10}, {{0, 0x124}, 10}},
                          .received = {{{0, 0x123}, 15}, {{0, 0x124}, 9}},
                          .refused = 0,
                          .duration = std::chrono::seconds(1)};
    std::ostringstream stream;
    EXPECT_EQ(printReport(stream, TRAFFIC, outcome), 1U);
}

TEST(RawCanReportTest, RefusedFramesAreSaid)
{
    const Outcome outcome{.sent = {}, .received = {}, .refused = 4, .duration = std::chrono::seconds(0)};
    std::ostringstream stream;
    EXPECT_EQ(printReport(stream, TRAFFIC, outcome), 0U);
    EXPECT_NE(stream.str().find("not sent: 4 frames that the logger refused\n"), std::string::npos);
}
