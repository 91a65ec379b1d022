#include "OptionCheck.h"

#include <capture/NumberText.h>

#include <limits>
#include <sstream>

namespace tool {

namespace {

constexpr double SPEED_MIN = 1e-6;
constexpr double SPEED_MAX = 1e6;
constexpr std::string_view SPEED_UNLIMITED = "max";

/// The parser reads an empty answer as consent.
template <typename IsRight>
CLI::Validator validator(IsRight isRight, const std::string& complaint)
{
    return CLI::Validator(
        [isRight, complaint](std::string& text) {
            return isRight(text) ? std::string() : "\"" + text + "\" is " + complaint;
        },
        "");
}

bool isDecimalBetween(std::string_view text, double least, double most)
{
    const auto number = capture::decimalNumberOf(text);
    return number && *number >= least && *number <= most;
}

/// A number without an exponent, as far as it is a usual one.
std::string shown(double number)
{
    std::ostringstream text;
    text.precision(std::numeric_limits<double>::digits10);
    text << number;
    return text.str();
}

} // namespace

CLI::Validator wholeNumber(uint64_t least)
{
    return validator(
        [least](std::string& text) {
            const auto number = capture::wholeNumberOf<uint64_t>(text);
            if (!number || *number < least) {
                return false;
            }
            text = std::to_string(*number);
            return true;
        },
        "not a whole number from " + std::to_string(least) + " to " +
            std::to_string(std::numeric_limits<uint64_t>::max()));
}

CLI::Validator secondsAboveZero()
{
    return validator(
        [](const std::string& text) {
            return isDecimalBetween(text, std::numeric_limits<double>::min(), SECONDS_MAX);
        },
        "not a number of seconds above 0, up to " + shown(SECONDS_MAX));
}

CLI::Validator seconds(double least, double most)
{
    return validator([least, most](const std::string& text) { return isDecimalBetween(text, least, most); },
                     "not a number of seconds from " + shown(least) + " to " + shown(most));
}

CLI::Validator speedFactor()
{
    return validator(
        [](const std::string& text) {
            return text == SPEED_UNLIMITED || isDecimalBetween(text, SPEED_MIN, SPEED_MAX);
        },
        "neither a factor from 0.000001 to 1000000 nor max");
}

double speedOf(std::string_view text)
{
    return text == SPEED_UNLIMITED ? 0 : capture::decimalNumberOf(text).value_or(1);
}

CLI::Validator notEmpty()
{
    return CLI::Validator(
        [](const std::string& text) { return text.empty() ? std::string("the name is empty") : std::string(); },
        "");
}

void addSecondsOption(CLI::App& command, double& chosen)
{
    command.add_option("--seconds", chosen, "End after so many seconds")->check(secondsAboveZero())->type_name("S");
}

} // namespace tool
