#pragma once

#include <vqutil/Export.h>

#include <cstdint>
#include <iosfwd>

/// Kind of a CAN frame: identifier width and format.
///
/// Values above 3 may occur. They have an 11-bit identifier and no payload rule.
enum cantype_t : uint32_t
{
    CAN_STANDARD = 0,    ///< classic frame, 11-bit identifier
    CAN_EXTENDED = 1,    ///< classic frame, 29-bit identifier
    CAN_FD_STANDARD = 2, ///< CAN FD frame, 11-bit identifier
    CAN_FD_EXTENDED = 3, ///< CAN FD frame, 29-bit identifier
};

/// Identifier bits of an 11-bit frame (ISO 11898-1, base format).
constexpr uint32_t CAN_STANDARD_ID_MASK = 0x7FF;
/// Identifier bits of a 29-bit frame (ISO 11898-1, extended format).
constexpr uint32_t CAN_EXTENDED_ID_MASK = 0x1FFFFFFF;

/// True if frames of this type carry a 29-bit identifier: types 1 and 3, and no other value.
constexpr bool isExtendedType(cantype_t type)
{
    return (static_cast<uint32_t>(type) & ~uint32_t{2}) == 1;
}

/// The bits of `id` that a frame of this type can carry; the others are dropped.
constexpr uint32_t maskedCanId(uint32_t id, cantype_t type)
{
    return id & (isExtendedType(type) ? CAN_EXTENDED_ID_MASK : CAN_STANDARD_ID_MASK);
}

/// Writes the type as its name: "standard", "extended", "FD standard", "FD extended"; any other value as
/// "unknown type " and the value in decimal. The stream's format flags have no effect and stay.
VQ_API std::ostream& operator<<(std::ostream& stream, cantype_t type);
