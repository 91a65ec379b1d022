#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

namespace wire {

/// True if the data length code of a CAN FD frame can say so many bytes.
inline bool isFdLength(size_t bytes)
{
    constexpr size_t SHORT_MAX_BYTES = 8;
    constexpr std::array<size_t, 7> LONG_BYTES{12, 16, 20, 24, 32, 48, 64};
    return bytes <= SHORT_MAX_BYTES || std::ranges::find(LONG_BYTES, bytes) != LONG_BYTES.end();
}

/// Why a CAN FD frame cannot have so many bytes.
inline std::string noFdLength(size_t bytes)
{
    return "a CAN FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 or 64 bytes, not " + std::to_string(bytes);
}

} // namespace wire
