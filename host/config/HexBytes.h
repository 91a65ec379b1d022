#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace config {

/// Reads pairs of hex digits, with or without blanks or dots between the pairs.
/// @return the bytes; nothing if the text is anything else
std::optional<std::vector<uint8_t>> parseHexBytes(std::string_view text);

/// Writes bytes as pairs of upper-case digits with blanks between them.
std::string formatHexBytes(std::span<const uint8_t> bytes);

} // namespace config
