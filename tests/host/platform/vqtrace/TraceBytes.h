#pragma once

#include <wire/TraceRecord.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

/// Bytes of trace streams, good and bad.
namespace tracebytes {

using Bytes = std::vector<uint8_t>;

/// A CAN frame record; `number` makes it tell from others.
inline Bytes frame(uint32_t number, uint8_t payloadBytes = 8)
{
    wire::CanRecord record{.timestampUs = number, .channel = 1, .id = number & 0x7FF, .lengthBytes = payloadBytes};
    record.payload.fill(static_cast<uint8_t>(number));
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> out{};
    const size_t size = wire::encode(record, out);
    return Bytes(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(size));
}

/// A record of another type, filled up with `fill`.
inline Bytes other(uint16_t type, size_t sizeBytes, uint8_t fill = 0xEE)
{
    Bytes bytes(sizeBytes, fill);
    wire::writeHeader(bytes.data(), {.lengthBytes = static_cast<uint16_t>(sizeBytes), .type = type});
    return bytes;
}

inline Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

} // namespace tracebytes
