#include "Refusal.h"

#include <logger/BoardKind.h>
#include <vlogger/ChannelMap.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tool {

using vlogger::board::COMBINED_112;
using vlogger::board::PLAIN;
using vlogger::board::WITH_EXTENSION;

TEST(ChannelMapTest, WithoutARuleTheNumberInTheNameIsTheChannel)
{
    ChannelMap sut({}, COMBINED_112);
    EXPECT_EQ(sut.channelOf("can0"), 0);
    EXPECT_EQ(sut.channelOf("vcan12"), 12);
    EXPECT_EQ(sut.channelOf("can255"), 255);
    EXPECT_EQ(sut.channelOf("7"), 7);
}

TEST(ChannelMapTest, RuleSaysTheChannelOfItsInterfaceAlone)
{
    ChannelMap sut({"can0=3", "body=can7"}, COMBINED_112);
    EXPECT_EQ(sut.channelOf("can0"), 3);
    EXPECT_EQ(sut.channelOf("body"), 7);
    EXPECT_EQ(sut.channelOf("can1"), 1);
}

TEST(ChannelMapTest, SecondRuleForOneInterfaceIsRefused)
{
    for (const std::string rule : {"can0=4", "can0=3"}) {
        EXPECT_EQ(refusalOf([&] {
                      ChannelMap({"can0=3", rule}, COMBINED_112);
                  }),
                  "map \"" + rule + "\": its interface has a channel already");
    }
}

TEST(ChannelMapTest, RuleForAChannelThatTheBoardLacksIsRefused)
{
    EXPECT_EQ(
        refusalOf([&] {
            ChannelMap({"can0=13", "can1=14"}, PLAIN);
        }),
        "map \"can1=14\": this board has no channel 14; the channels from 14 on need [board] device_code = 4");
}

TEST(ChannelMapTest, RuleForAChannelOfTheExtensionHoldsWhereItIs)
{
    ChannelMap sut({"can0=14"}, WITH_EXTENSION);
    EXPECT_EQ(sut.channelOf("can0"), 14);
}

TEST(ChannelMapTest, NumberOfAChannelThatTheBoardLacksStandsForNone)
{
    ChannelMap sut({}, PLAIN);
    EXPECT_EQ(sut.channelOf("can13"), 13);
    EXPECT_EQ(
        refusalOf<NoChannel>([&] { sut.channelOf("can14"); }),
        "the capture's interface \"can14\": this board has no channel 14; the channels from 14 on need [board] "
        "device_code = 4");
}

TEST(ChannelMapTest, RulesThatNobodyHasAskedForAreUnused)
{
    ChannelMap sut({"can0=3", "vcan0=4", "body=7"}, COMBINED_112);
    sut.channelOf("can0");
    sut.channelOf("can1");
    EXPECT_EQ(sut.unusedNames(), (std::vector<std::string>{"body", "vcan0"}));
}

TEST(ChannelMapTest, InterfaceWithoutANumberAsksForARule)
{
    ChannelMap sut({}, COMBINED_112);
    EXPECT_EQ(refusalOf<NoChannel>([&] { sut.channelOf("body"); }),
              "the capture's interface \"body\" stands for no channel; say which: --map body=0");
}

TEST(ChannelMapTest, NumberBeyondTheLastChannelAsksForARule)
{
    ChannelMap sut({}, COMBINED_112);
    EXPECT_EQ(refusalOf<NoChannel>([&] { sut.channelOf("can256"); }),
              "the capture's interface \"can256\" stands for no channel; say which: --map can256=0");
}

TEST(ChannelMapTest, RuleThatCannotBeIsRefusedWithItsText)
{
    for (const std::string rule : {"", "can0", "=3", "can0=", "can0=256", "can0=-1", "can0=x", "can0=3=4"}) {
        EXPECT_EQ(refusalOf([&] { ChannelMap({rule}, COMBINED_112); }),
                  "map \"" + rule + "\": it is not interface=channel, for example can0=3");
    }
}

} // namespace tool
