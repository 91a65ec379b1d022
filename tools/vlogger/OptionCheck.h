#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>
#include <string_view>

/// Checks of the numbers that options take. The command-line parser alone takes -1 for the largest number there is, 010
/// for eight and nan for a time.
namespace tool {

/// Takes decimal whole numbers from `least` on. To be added with transform(): the parser would take leading zeros for
/// an octal number.
CLI::Validator wholeNumber(uint64_t least);

/// Takes times in seconds up to 1e9, about thirty years; more than zero.
CLI::Validator secondsAboveZero();

/// Takes times in seconds from `least` to `most`.
CLI::Validator seconds(double least, double most);

/// The longest time that a command waits for, about thirty years.
constexpr double SECONDS_MAX = 1e9;

/// Takes factors from a millionth to a million, and the word max.
CLI::Validator speedFactor();

/// What such an option means.
/// @param text  one that speedFactor() takes
/// @return 0 for max
double speedOf(std::string_view text);

/// Takes every text but the empty one, which most likely comes from a variable that is not set.
CLI::Validator notEmpty();

/// Adds --seconds to a command that takes frames for a while.
void addSecondsOption(CLI::App& command, double& chosen);

} // namespace tool
