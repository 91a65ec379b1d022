#include "OptionCheck.h"

#include <charconv>
#include <limits>

namespace tool {

namespace {

constexpr double SECONDS_MAX = 1e9;

/// The whole text as a number.
template <typename Number>
bool isNumber(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const auto [position, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && position == end;
}

/// The parser reads an empty answer as consent.
template <typename IsRight>
CLI::Validator validator(IsRight isRight, const std::string& wanted)
{
    return CLI::Validator(
        [isRight, wanted](const std::string& text) {
            return isRight(text) ? std::string() : "\"" + text + "\" is not " + wanted;
        },
        "");
}

} // namespace

CLI::Validator wholeNumber(uint64_t least)
{
    return validator(
        [least](const std::string& text) {
            uint64_t number = 0;
            return isNumber(text, number) && number >= least;
        },
        "a whole number from " + std::to_string(least) + " to " +
            std::to_string(std::numeric_limits<uint64_t>::max()));
}

CLI::Validator seconds(double least)
{
    return validator(
        [least](const std::string& text) {
            double number = 0;
            return isNumber(text, number) && number >= least && number <= SECONDS_MAX;
        },
        least > 0 ? "a number of seconds above 0, up to 1000000000" : "a number of seconds from 0 to 1000000000");
}

} // namespace tool
