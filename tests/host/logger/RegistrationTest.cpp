#include <logger/Registration.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using vlogger::parseRegistration;
using vlogger::Registration;

namespace {

std::string_view problemOf(std::string_view text)
{
    return parseRegistration(text).problem;
}

constexpr std::string_view FIELDS = "it has not five fields with single blanks between";
constexpr std::string_view CHANNEL = "the channel is no number from 0 to 255";
constexpr std::string_view IDENTIFIER = "the identifier is no number of 32 bits";

TEST(RegistrationTest, AGoodTextIsRead)
{
    const auto parsed = parseRegistration("1 2 1 2024 diag");
    EXPECT_EQ(parsed.problem, "");
    EXPECT_EQ(parsed.registration, (Registration{.channel = 2, .idWord = 2024, .name = "diag"}));
}

TEST(RegistrationTest, Bit31OfTheIdentifierIsKept)
{
    EXPECT_EQ(parseRegistration("1 255 1 2564423921 diag").registration,
              (Registration{.channel = 255, .idWord = 0x98DA00F1, .name = "diag"}));
}

TEST(RegistrationTest, TheLimitsOfTheNumbersAreTaken)
{
    EXPECT_EQ(parseRegistration("1 0 1 0 d").registration, (Registration{.channel = 0, .idWord = 0, .name = "d"}));
    EXPECT_EQ(parseRegistration("1 0 1 4294967295 d").registration.idWord, 0xFFFFFFFFU);
}

TEST(RegistrationTest, NulCharactersAtTheEndDoNotCount)
{
    EXPECT_EQ(parseRegistration(std::string_view("1 2 1 3 diag\0\0\0", 15)).registration.name, "diag");
}

TEST(RegistrationTest, TheNameIsTheRestAndMayHoldBlanks)
{
    EXPECT_EQ(parseRegistration("1 2 1 3 my own name").registration.name, "my own name");
    EXPECT_EQ(parseRegistration("1 2 1 3  x").registration.name, " x");
    EXPECT_EQ(parseRegistration("1 2 1 3 " + std::string(255, 'n')).registration.name, std::string(255, 'n'));
}

TEST(RegistrationTest, MissingFieldsAreSaid)
{
    for (const std::string_view text : {"", "1", "1 2", "1 2 1", "1 2 1 2024", " "}) {
        EXPECT_EQ(problemOf(text), FIELDS) << text;
    }
}

TEST(RegistrationTest, FixedFieldsMustBeOne)
{
    EXPECT_EQ(problemOf("2 2 1 2024 diag"), "the first field is not 1");
    EXPECT_EQ(problemOf(" 1 2 1 2024 diag"), "the first field is not 1");
    EXPECT_EQ(problemOf("01 2 1 2024 diag"), "the first field is not 1");
    EXPECT_EQ(problemOf("1 2 0 2024 diag"), "the third field is not 1");
    EXPECT_EQ(problemOf("1 2 11 2024 diag"), "the third field is not 1");
}

TEST(RegistrationTest, TheChannelMustBeANumberOfAChannel)
{
    for (const std::string_view channel : {"", "256", "-1", "+1", "x", "2x", "0x2", "99999999999999999999"}) {
        EXPECT_EQ(problemOf("1 " + std::string(channel) + " 1 2024 diag"), CHANNEL) << channel;
    }
}

TEST(RegistrationTest, TheIdentifierMustBeANumberOf32Bits)
{
    for (const std::string_view id : {"", "4294967296", "-1", "+1", "x", "7E8", "0x7E8", "2024,"}) {
        EXPECT_EQ(problemOf("1 2 1 " + std::string(id) + " diag"), IDENTIFIER) << id;
    }
}

TEST(RegistrationTest, TheNameMustBeABusName)
{
    EXPECT_EQ(problemOf("1 2 1 2024 "), "the name is no bus name");
    EXPECT_EQ(problemOf("1 2 1 2024 " + std::string(256, 'n')), "the name is no bus name");
    EXPECT_EQ(problemOf(std::string_view("1 2 1 2024 a\0b", 14)), "the name is no bus name");
}

} // namespace
