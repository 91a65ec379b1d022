#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

/// The process bus on the wire: what a connection carries after a granted BUS request (Protocol.h), in packets,
/// all numbers big-endian. docs/wire.md has the tables.
///
/// The request names the client: its text is the bus name, 1 to 255 bytes. Several connections may carry one name.
/// Afterwards both sides send MESSAGE packets; the virtual logger also sends DROPPED.
///
/// | packet | after magic, version and kind |
/// |---|---|
/// | MESSAGE | length (1) and bytes of the source name, the same of the destination name, one whole record |
/// | DROPPED | messages for this client that were dropped since the last such packet (8) |
namespace wire {

/// Longest name on the bus, in bytes.
constexpr size_t BUS_NAME_MAX_BYTES = 255;
/// No MESSAGE packet is longer: header, two names with their lengths, and the longest record.
constexpr size_t BUS_PACKET_MAX_BYTES = 4 + 2 * (1 + BUS_NAME_MAX_BYTES) + 65535;
/// The name under which the virtual logger itself takes registrations.
constexpr std::string_view TRACE_LOGGER_NAME = "TraceLogger";

enum class BusKind : uint8_t
{
    MESSAGE = 0x20,
    DROPPED = 0x21,
};

/// A message between two names. A view: it lives as long as the bytes that it points into.
struct BusMessage
{
    std::string_view source;         ///< the virtual logger replaces it by the sending connection's own name
    std::string_view destination;    ///< 1 to 255 bytes
    std::span<const uint8_t> record; ///< one whole record, RECORD_MIN_BYTES to RECORD_MAX_BYTES bytes
};

/// Serialises a message, or appends nothing and returns false if a name is too long or the record is not one whole
/// record by its length field.
bool appendBusMessage(std::vector<uint8_t>& packet, const BusMessage& message);

/// Decodes a MESSAGE packet; nothing if it is none, of another version, or its parts do not fill it exactly.
std::optional<BusMessage> decodeBusMessage(std::span<const uint8_t> packet);

std::vector<uint8_t> encodeBusDropped(uint64_t count);
std::optional<uint64_t> decodeBusDropped(std::span<const uint8_t> packet);

/// True for a name that a connection can carry: 1 to BUS_NAME_MAX_BYTES bytes without NUL.
bool isBusName(std::string_view name);

} // namespace wire
