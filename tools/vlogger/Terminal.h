#pragma once

#include <cstddef>
#include <optional>

namespace tool {

/// The size of a terminal; windows change, so it is asked for anew each time.
struct Terminal
{
    size_t columns = 80;
    size_t rows = 24;
};

/// @return nothing if the descriptor is no terminal
std::optional<Terminal> terminalAt(int fd);

} // namespace tool
