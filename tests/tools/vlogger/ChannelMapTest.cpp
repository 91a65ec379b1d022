#include "Refusal.h"

#include <vlogger/ChannelMap.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tool {

TEST(ChannelMapTest, WithoutARuleTheNumberInTheNameIsTheChannel)
{
    ChannelMap sut({});
    EXPECT_EQ(sut.channelOf("can0"), 0);
    EXPECT_EQ(sut.channelOf("vcan12"), 12);
    EXPECT_EQ(sut.channelOf("can255"), 255);
    EXPECT_EQ(sut.channelOf("7"), 7);
}

TEST(ChannelMapTest, RuleSaysTheChannelOfItsInterfaceAlone)
{
    ChannelMap sut({"can0=3", "body=can7"});
    EXPECT_EQ(sut.channelOf("can0"), 3);
    EXPECT_EQ(sut.channelOf("body"), 7);
    EXPECT_EQ(sut.channelOf("can1"), 1);
}

TEST(ChannelMapTest, LastOfTwoRulesForOneInterfaceHolds)
{
    ChannelMap sut({"can0=3", "can0=4"});
    EXPECT_EQ(sut.channelOf("can0"), 4);
}

TEST(ChannelMapTest, RulesThatNobodyHasAskedForAreUnused)
{
    ChannelMap sut({"can0=3", "vcan0=4", "body=7"});
    sut.channelOf("can0");
    sut.channelOf("can1");
    EXPECT_EQ(sut.unusedNames(), (std::vector<std::string>{"body", "vcan0"}));
}

TEST(ChannelMapTest, InterfaceWithoutANumberAsksForARule)
{
    ChannelMap sut({});
    EXPECT_EQ(refusalOf([&] { sut.channelOf("body"); }),
              "the capture's interface \"body\" stands for no channel; say which: --map body=0");
}

TEST(ChannelMapTest, NumberBeyondTheLastChannelAsksForARule)
{
    ChannelMap sut({});
    EXPECT_EQ(refusalOf([&] { sut.channelOf("can256"); }),
              "the capture's interface \"can256\" stands for no channel; say which: --map can256=0");
}

TEST(ChannelMapTest, RuleThatCannotBeIsRefusedWithItsText)
{
    for (const std::string rule : {"", "can0", "=3", "can0=", "can0=256", "can0=-1", "can0=x", "can0=3=4"}) {
        EXPECT_EQ(refusalOf([&] { ChannelMap({rule}); }),
                  "map \"" + rule + "\": it is not interface=channel, for example can0=3");
    }
}

} // namespace tool
