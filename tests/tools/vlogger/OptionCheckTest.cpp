#include <vlogger/OptionCheck.h>

#include <gtest/gtest.h>

#include <string>

namespace tool {

namespace {

/// What the check says of a text; empty if it is right.
std::string complaintOf(const CLI::Validator& check, std::string text)
{
    return check(text);
}

} // namespace

TEST(OptionCheckTest, WholeNumbersFromTheLeastOnAreRight)
{
    EXPECT_EQ(complaintOf(wholeNumber(1), "1"), "");
    EXPECT_EQ(complaintOf(wholeNumber(0), "0"), "");
    EXPECT_EQ(complaintOf(wholeNumber(0), "18446744073709551615"), "");
}

TEST(OptionCheckTest, LeadingZerosAreTakenAwayBeforeTheParserSeesAnOctalNumber)
{
    std::string text = "010";
    EXPECT_EQ(wholeNumber(1)(text), "");
    EXPECT_EQ(text, "10");
}

TEST(OptionCheckTest, EverythingElseIsNoWholeNumber)
{
    for (const std::string text :
         {"0", "-1", "+1", "1.0", "1e3", "0x1", " 1", "1 ", "", "1_000", "18446744073709551616"}) {
        EXPECT_EQ(complaintOf(wholeNumber(1), text),
                  "\"" + text + "\" is not a whole number from 1 to 18446744073709551615");
    }
}

TEST(OptionCheckTest, SecondsFromTheLeastToTheMostAreRight)
{
    for (const char* text : {"0", "0.5", "1e9", "1e-6", ".5", "007"}) {
        EXPECT_EQ(complaintOf(seconds(0, SECONDS_MAX), text), "") << text;
    }
    EXPECT_EQ(complaintOf(seconds(0.05, 3600), "0.05"), "");
    EXPECT_EQ(complaintOf(seconds(0.05, 3600), "3600"), "");
}

TEST(OptionCheckTest, NegativeEndlessAndUnknownTimesAreRefused)
{
    for (const std::string text : {"-0.1", "-0", "+1", " 1", "1 ", "inf", "INF", "nan", "NAN", "-nan", "1.1e9",
                                   "1s", "", ".", "1,5", "0x10", "1e999"}) {
        EXPECT_EQ(complaintOf(seconds(0, SECONDS_MAX), text),
                  "\"" + text + "\" is not a number of seconds from 0 to 1000000000");
    }
    EXPECT_EQ(complaintOf(seconds(0.05, 3600), "0.049"), "\"0.049\" is not a number of seconds from 0.05 to 3600");
    EXPECT_EQ(complaintOf(seconds(0.05, 3600), "nan"), "\"nan\" is not a number of seconds from 0.05 to 3600");
}

TEST(OptionCheckTest, NoTimeAtAllIsRefusedWhereSomeIsNeeded)
{
    EXPECT_EQ(complaintOf(secondsAboveZero(), "0.001"), "");
    EXPECT_EQ(complaintOf(secondsAboveZero(), "0"), "\"0\" is not a number of seconds above 0, up to 1000000000");
}

TEST(OptionCheckTest, SpeedIsAFactorOrMax)
{
    EXPECT_EQ(complaintOf(speedFactor(), "max"), "");
    EXPECT_EQ(speedOf("max"), 0);
    EXPECT_EQ(complaintOf(speedFactor(), "0.000001"), "");
    EXPECT_EQ(complaintOf(speedFactor(), "1e6"), "");
    EXPECT_EQ(speedOf("2.5"), 2.5);
}

TEST(OptionCheckTest, SpeedThatIsNeitherIsRefused)
{
    for (const std::string text :
         {"0", "-1", "+2", " 2", "2 ", "0x10", "nan", "inf", "1e7", "1e-7", "1e-300", "fast", "MAX", "1x", ""}) {
        EXPECT_EQ(complaintOf(speedFactor(), text),
                  "\"" + text + "\" is neither a factor from 0.000001 to 1000000 nor max");
    }
}

} // namespace tool
