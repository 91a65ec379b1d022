#pragma once

#include <cstddef>
#include <cstdint>

/// Numbers of the pcapng format that both its reader and its writer need.
namespace capture::pcapng {

// Types of blocks.
constexpr uint32_t SECTION_HEADER = 0x0A0D0D0A; ///< the same in both byte orders
constexpr uint32_t INTERFACE_DESCRIPTION = 1;
constexpr uint32_t PACKET = 2; ///< obsolete, still written by old tools
constexpr uint32_t SIMPLE_PACKET = 3;
constexpr uint32_t INTERFACE_STATISTICS = 5;
constexpr uint32_t ENHANCED_PACKET = 6;

constexpr uint32_t BYTE_ORDER_MAGIC = 0x1A2B3C4D;
constexpr uint16_t VERSION_MAJOR = 1;
constexpr uint16_t VERSION_MINOR = 0;
constexpr uint64_t LENGTH_UNKNOWN = ~uint64_t{0};

// Options; each number has its meaning only in the block named.
constexpr uint16_t OPTION_END = 0;
constexpr uint16_t SECTION_APPLICATION = 4;
constexpr uint16_t INTERFACE_NAME = 2;
constexpr uint16_t INTERFACE_RESOLUTION = 9;
constexpr uint16_t INTERFACE_OFFSET = 14;
constexpr uint16_t PACKET_FLAGS = 2;
constexpr uint16_t PACKET_DROP_COUNT = 4;
constexpr uint16_t STATISTICS_RECEIVED = 4;
constexpr uint16_t STATISTICS_DROPPED = 5;

/// Bits 0 and 1 of the packet flags.
constexpr uint32_t DIRECTION_MASK = 3;
constexpr uint32_t INBOUND = 1;
constexpr uint32_t OUTBOUND = 2;

/// Type and length before the body of a block, length behind it.
constexpr size_t BLOCK_HEADER_BYTES = 8;
constexpr size_t BLOCK_FRAME_BYTES = 12;
/// Number and length before the value of an option.
constexpr size_t OPTION_HEADER_BYTES = 4;

/// Everything is aligned to 32 bits.
constexpr size_t padded(size_t bytes)
{
    return (bytes + 3) & ~size_t{3};
}

} // namespace capture::pcapng
