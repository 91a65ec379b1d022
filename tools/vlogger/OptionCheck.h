#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

namespace tool {

/// Takes decimal whole numbers from `least` on. Without it the parser takes -1 for the largest number there is.
CLI::Validator wholeNumber(uint64_t least);

/// Takes a time in seconds from `least` up to 1e9, about thirty years.
CLI::Validator seconds(double least);

} // namespace tool
