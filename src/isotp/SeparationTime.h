#pragma once

#include <cstdint>

/// Separation time byte of a flow control frame (ISO 15765-2) in microseconds.
constexpr uint32_t separationTimeUs(uint8_t separationTime)
{
    if (separationTime <= 0x7F) {
        return separationTime * 1000U;
    }
    if (separationTime >= 0xF1 && separationTime <= 0xF9) {
        return (separationTime - 0xF0U) * 100U;
    }
    // The reserved values mean 127 microseconds here, not the 127 milliseconds of the standard: this is intended.
    return 127;
}
