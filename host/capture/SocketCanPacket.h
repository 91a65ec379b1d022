#pragma once

#include <capture/CandumpLog.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

/// One CAN frame as the packet of a capture with link type 227:
///
/// | offset | size | field |
/// |---|---|---|
/// | 0 | 4 | identifier, big-endian; bit 31: 29-bit identifier, bit 30: remote frame, bit 29: error frame |
/// | 4 | 1 | payload length; of a remote frame the requested length |
/// | 5 | 1 | CAN FD flags; bit 0: bit-rate switch, bit 1: error state of the sender, bit 2: this is a CAN FD frame |
/// | 6 | 1 | zero |
/// | 7 | 1 | length code of a classic frame of 8 bytes, 9 to 15, if it was not 8 on the wire; else 0 |
/// | 8 | 0 to 64 | payload |
namespace capture {

constexpr uint16_t LINK_TYPE_SOCKETCAN = 227;
constexpr size_t SOCKETCAN_HEADER_BYTES = 8;
constexpr size_t SOCKETCAN_MAX_BYTES = SOCKETCAN_HEADER_BYTES + 64;

/// Set in the flags of every CAN FD frame.
constexpr uint8_t FD_FORMAT_FLAG = 0x04;

/// Serialises a frame.
/// @return length of the packet in bytes
size_t encodeSocketCan(const CandumpFrame& frame, std::span<uint8_t, SOCKETCAN_MAX_BYTES> out);

/// Reads a packet into `frame`; time and interface name stay as they are. Padding behind the payload, as the kernel
/// leaves it, is accepted. A packet of 72 bytes without the CAN FD flag is taken for CAN FD too: older tools did
/// not set it.
/// @return empty if the packet holds a frame, else the reason why it does not
std::string decodeSocketCan(std::span<const uint8_t> packet, CandumpFrame& frame);

} // namespace capture
