#include "Refusal.h"

#include <vlogger/FilterSet.h>
#include <vlogger/FrameText.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tool {

namespace {

bool shows(const std::vector<std::string>& filters, uint8_t channel, const std::string& frame)
{
    return FilterSet(filters).shows(channel, parseFrame(frame));
}

std::string refusalOfFilter(const std::string& filter)
{
    return refusalOf([&] { FilterSet({filter}); });
}

} // namespace

TEST(FilterSetTest, NoFilterWatchesAndShowsEverything)
{
    EXPECT_TRUE(FilterSet({}).channels().all());
    EXPECT_TRUE(shows({}, 255, "1FFFFFFF##0"));
}

TEST(FilterSetTest, ChannelAloneShowsAllOfItAndNothingElse)
{
    EXPECT_EQ(FilterSet({"can3"}).channels().count(), 1U);
    EXPECT_TRUE(FilterSet({"can3"}).channels().test(3));
    EXPECT_TRUE(shows({"3"}, 3, "7FF#"));
    EXPECT_FALSE(shows({"can3"}, 2, "7FF#"));
}

TEST(FilterSetTest, AnyWatchesEveryChannel)
{
    EXPECT_TRUE(FilterSet({"any,123:7FF"}).channels().all());
    EXPECT_TRUE(shows({"any,123:7FF"}, 200, "123#"));
    EXPECT_FALSE(shows({"any,123:7FF"}, 200, "124#"));
}

TEST(FilterSetTest, AnyNamesNoChannel)
{
    EXPECT_TRUE(FilterSet({}).namedChannels().none());
    EXPECT_TRUE(FilterSet({"any,123:7FF"}).namedChannels().none());
}

TEST(FilterSetTest, ChannelsOfAllFiltersAreNamed)
{
    const FilterSet sut({"can3", "any,123:7FF", "can200,124:7FF"});
    EXPECT_EQ(sut.namedChannels(), wire::ChannelSet().set(3).set(200));
}

TEST(FilterSetTest, MaskSaysWhichBitsCount)
{
    EXPECT_TRUE(shows({"can0,100:700"}, 0, "1FF#"));
    EXPECT_FALSE(shows({"can0,100:700"}, 0, "200#"));
    EXPECT_TRUE(shows({"can0,123:0"}, 0, "7FF#"));
}

TEST(FilterSetTest, TildeShowsAllButThese)
{
    EXPECT_FALSE(shows({"can0,123~7FF"}, 0, "123#"));
    EXPECT_TRUE(shows({"can0,123~7FF"}, 0, "124#"));
}

TEST(FilterSetTest, OneOfSeveralRulesIsEnough)
{
    EXPECT_TRUE(shows({"can0,123:7FF,456:7FF"}, 0, "456#"));
    EXPECT_TRUE(shows({"can0,123~7FF,456~7FF"}, 0, "456#"));
}

TEST(FilterSetTest, JoinedRulesHaveToMatchAll)
{
    for (const std::string join : {"j", "J"}) {
        EXPECT_FALSE(shows({"can0,123~7FF,456~7FF," + join}, 0, "456#"));
        EXPECT_TRUE(shows({"can0,123~7FF,456~7FF," + join}, 0, "457#"));
    }
    EXPECT_TRUE(shows({"can0,j"}, 0, "123#"));
}

TEST(FilterSetTest, FiltersOfOneChannelAddUp)
{
    EXPECT_TRUE(shows({"can0,123:7FF", "can0,456:7FF"}, 0, "456#"));
}

TEST(FilterSetTest, EightDigitsTellThe29BitIdentifierFromTheOther)
{
    EXPECT_TRUE(shows({"can0,00000123:1FFFFFFF"}, 0, "00000123#"));
    EXPECT_FALSE(shows({"can0,00000123:1FFFFFFF"}, 0, "123#"));
    EXPECT_TRUE(shows({"can0,123:7FF"}, 0, "00000123#"));
}

TEST(FilterSetTest, RemoteBitInTheMaskTellsRemoteFrames)
{
    EXPECT_TRUE(shows({"can0,40000000:40000000"}, 0, "00000123#R"));
    EXPECT_FALSE(shows({"can0,40000000:40000000"}, 0, "00000123#"));
}

TEST(FilterSetTest, ErrorMaskShowsErrorFramesOfItsClasses)
{
    EXPECT_TRUE(shows({"can0,#FFFFFFFF"}, 0, "20000004#00"));
    EXPECT_TRUE(shows({"can0,#4"}, 0, "20000004#00"));
    EXPECT_FALSE(shows({"can0,#8"}, 0, "20000004#00"));
    EXPECT_FALSE(shows({"can1,#FFFFFFFF"}, 0, "20000004#00"));
}

TEST(FilterSetTest, ErrorMaskAloneShowsAllOtherFramesToo)
{
    EXPECT_TRUE(shows({"can0,#FFFFFFFF"}, 0, "123#00"));
}

TEST(FilterSetTest, ErrorMaskBesideRulesLeavesThemAsTheyAre)
{
    EXPECT_TRUE(shows({"can0,123:7FF,#FF"}, 0, "123#00"));
    EXPECT_FALSE(shows({"can0,123:7FF,#FF"}, 0, "124#00"));
    EXPECT_TRUE(shows({"can0,123:7FF,#FF"}, 0, "20000004#00"));
    EXPECT_TRUE(shows({"can0,0~0,#FF"}, 0, "20000004#00"));
    EXPECT_FALSE(shows({"can0,0~0,#FF"}, 0, "123#00"));
}

TEST(FilterSetTest, RulesWithoutAnErrorMaskShowNoErrorFrame)
{
    EXPECT_FALSE(shows({"can0"}, 0, "20000004#00"));
    EXPECT_FALSE(shows({"can0,0:0"}, 0, "20000004#00"));
    EXPECT_TRUE(shows({}, 0, "20000004#00"));
}

TEST(FilterSetTest, ErrorMaskThatIsNoneIsRefused)
{
    for (const std::string mask : {"#", "#x", "#1FFFFFFFF", "#-1"}) {
        EXPECT_EQ(refusalOfFilter("can0," + mask),
                  "filter \"" + mask + "\": behind # stands a mask of error classes in hex digits");
    }
}

TEST(FilterSetTest, ChannelThatIsNoneIsRefused)
{
    EXPECT_EQ(refusalOfFilter("can256"), "filter \"can256\": \"can256\" is no channel (can0 to can255, any)");
    EXPECT_EQ(refusalOfFilter(""), "filter \"\": \"\" is no channel (can0 to can255, any)");
    EXPECT_EQ(refusalOfFilter(",1:1"), "filter \",1:1\": \"\" is no channel (can0 to can255, any)");
}

TEST(FilterSetTest, RuleThatCannotBeIsRefused)
{
    for (const std::string rule :
         {"", "123", "123:", ":7FF", "x:7FF", "123:x", "123456789:1", "123:7FF:1", "-1:1"}) {
        EXPECT_EQ(refusalOfFilter("can0," + rule),
                  "filter \"" + rule +
                      "\": it is not identifier:mask, identifier~mask or #errormask in hex digits");
    }
}

} // namespace tool
