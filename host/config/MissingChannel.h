#pragma once

#include <wire/Protocol.h>

#include <cstdint>
#include <optional>
#include <string>

namespace config {

/// Says that `board` has no such channel, and which setting brings it: nobody would ever hear that channel, since no
/// trace device carries it.
/// @return nothing if the board has the channel
std::optional<std::string> missingChannel(const wire::Board& board, uint8_t channel);

} // namespace config
