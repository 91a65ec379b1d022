#pragma once

#include <logger/node/IsoTpNodeOptions.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

namespace vlogger {

enum class IsoTpKind : uint8_t
{
    SINGLE = 0,
    FIRST = 1,
    CONSECUTIVE = 2,
    FLOW_CONTROL = 3,
};

enum class IsoTpFlow : uint8_t
{
    CONTINUE = 0,
    WAIT = 1,
    OVERFLOWED = 2,
};

/// The content of one frame.
struct IsoTpPdu
{
    IsoTpKind kind = IsoTpKind::SINGLE;
    size_t messageBytes = 0;               ///< SINGLE, FIRST: length of the whole message
    uint8_t sequenceNumber = 0;            ///< CONSECUTIVE: 0 to 15
    uint8_t flow = 0;                      ///< FLOW_CONTROL: value of IsoTpFlow, or a reserved one
    uint8_t blockSize = 0;                 ///< FLOW_CONTROL
    uint8_t separationTime = 0;            ///< FLOW_CONTROL: as it is coded
    std::span<const uint8_t> payload = {}; ///< points into the frame; may include padding
};

constexpr size_t ISO_TP_FRAME_BYTES = 8;
constexpr size_t ISO_TP_MESSAGE_MAX_BYTES = 4095;

/// How many bytes of a message fit behind the control information of a frame of this kind.
size_t payloadBytesOf(IsoTpKind kind, const IsoTpFormat& format);

/// Takes a frame apart.
/// @return nothing if it is for another address or too short for what it says it is
std::optional<IsoTpPdu> decodeIsoTp(std::span<const uint8_t> data, const IsoTpFormat& format);

/// Puts a frame together: address, control information, payload, padding.
Bytes encodeIsoTp(std::initializer_list<uint8_t> control, std::span<const uint8_t> payload,
                  const IsoTpFormat& format);

/// The time that a coded separation time stands for; reserved values are 127 ms.
std::chrono::microseconds separationTimeOf(uint8_t code);

/// The code of a time, rounded up.
uint8_t separationCodeOf(std::chrono::microseconds time);

} // namespace vlogger
