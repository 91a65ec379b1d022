#pragma once

#include <span>
#include <string_view>

namespace config {

/// The name that `word` abbreviates, else the one that needs the fewest typing errors to become `word`; the first
/// of several. Empty if there is no name.
std::string_view nearestName(std::string_view word, std::span<const std::string_view> names);

} // namespace config
