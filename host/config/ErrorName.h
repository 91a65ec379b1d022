#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace config {

/// Names of the errors with which a device write may fail.
std::span<const std::string_view> errorNames();

/// The number of such a name; nothing for every other.
std::optional<int> errorNumberOf(std::string_view name);

} // namespace config
