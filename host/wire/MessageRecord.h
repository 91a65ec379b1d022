#pragma once

#include <wire/TraceRecord.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Layouts of the messages that are no CAN frames. They begin like every record (see TraceRecord.h); all fields are
/// big-endian.
///
/// Type 128, a command with a text:
///
/// | offset | size | field |
/// |---|---|---|
/// | 14 | 2 | command |
/// | 16 | to the end | text |
///
/// Type 0x8014, a whole message of the ISO 15765-2 transport:
///
/// | offset | size | field |
/// |---|---|---|
/// | 14 | 4 | identifier, as it stands in the message |
/// | 18 | 4 | frame type |
/// | 22 | to the end | payload |
///
/// A message that is longer than RECORD_MAX_BYTES carries RECORD_MAX_BYTES in its length field. It cannot travel;
/// the decoders refuse it.
namespace wire {

constexpr uint16_t SYSTEM_RECORD_TYPE = 128;
constexpr uint16_t TRANSPORT_RECORD_TYPE = 0x8014;
constexpr size_t SYSTEM_RECORD_MIN_BYTES = RECORD_MIN_BYTES + 2;
constexpr size_t TRANSPORT_RECORD_MIN_BYTES = RECORD_MIN_BYTES + 8;

/// A command with a text, decoded.
struct SystemRecord
{
    uint64_t timestampUs = 0;
    uint16_t command = 0;
    std::string text;
};

/// A transport message, decoded.
struct TransportRecord
{
    uint64_t timestampUs = 0;
    uint32_t id = 0;
    uint32_t type = 0;
    std::vector<uint8_t> payload;
};

/// Writes the beginning that all records share: header and time stamp, RECORD_MIN_BYTES.
/// @param recordBytes  length of the whole record; more than the field can hold becomes RECORD_MAX_BYTES
void writeRecordStart(uint8_t* bytes, size_t recordBytes, uint16_t type, uint64_t timestampUs);

/// Time stamp of a record. `bytes` holds at least RECORD_MIN_BYTES.
uint64_t timestampOf(const uint8_t* bytes);

/// Replaces the bytes of `out` from `offset` on by the record. `offset` is at most `out.size()`.
void encodeSystemRecord(uint16_t type, uint64_t timestampUs, uint16_t command, std::string_view text,
                        std::vector<uint8_t>& out, size_t offset);
void encodeTransportRecord(uint16_t type, uint64_t timestampUs, uint32_t id, uint32_t frameType,
                           std::span<const uint8_t> payload, std::vector<uint8_t>& out, size_t offset);

/// Decodes a whole record of type 128.
/// @return the command; nothing if `bytes` is not exactly one well-formed record of that type
std::optional<SystemRecord> decodeSystemRecord(std::span<const uint8_t> bytes);

/// Decodes a whole record of type 0x8014.
/// @return the message; nothing if `bytes` is not exactly one well-formed record of that type
std::optional<TransportRecord> decodeTransportRecord(std::span<const uint8_t> bytes);

} // namespace wire
