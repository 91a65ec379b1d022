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

TEST(OptionCheckTest, EverythingElseIsNoWholeNumber)
{
    for (const std::string text : {"0", "-1", "+1", "1.0", "1e3", "0x1", " 1", "1 ", "", "18446744073709551616"}) {
        EXPECT_EQ(complaintOf(wholeNumber(1), text),
                  "\"" + text + "\" is not a whole number from 1 to 18446744073709551615");
    }
}

TEST(OptionCheckTest, SecondsFromTheLeastOnAreRight)
{
    for (const char* text : {"0", "0.5", "1e9", "1e-6"}) {
        EXPECT_EQ(complaintOf(seconds(0), text), "") << text;
    }
}

TEST(OptionCheckTest, NegativeEndlessAndUnknownTimesAreRefused)
{
    for (const std::string text : {"-0.1", "inf", "nan", "-nan", "1.1e9", "1s", "", "1e999"}) {
        EXPECT_EQ(complaintOf(seconds(0), text),
                  "\"" + text + "\" is not a number of seconds from 0 to 1000000000");
    }
}

TEST(OptionCheckTest, NoTimeAtAllIsRefusedWhereSomeIsNeeded)
{
    EXPECT_EQ(complaintOf(seconds(0.001), "0"), "\"0\" is not a number of seconds above 0, up to 1000000000");
}

} // namespace tool
