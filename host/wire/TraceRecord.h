#pragma once

#include <wire/BigEndian.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// The one layout of a record: what a message serialises to, what a trace stream consists of, what is written to a
/// transmit device. All fields are big-endian.
///
/// | offset | size | field |
/// |---|---|---|
/// | 0 | 2 | length of the whole record |
/// | 2 | 2 | type; 11 is a CAN frame |
/// | 4 | 2 | zero |
/// | 6 | 8 | time stamp in microseconds |
///
/// and for a CAN frame
///
/// | offset | size | field |
/// |---|---|---|
/// | 14 | 1 | channel |
/// | 15 | 1 | frame kind |
/// | 16 | 1 | state or error code |
/// | 17 | 1 | frame type |
/// | 18 | 4 | identifier, bit 31 set for a 29-bit one |
/// | 22 | 1 | payload length |
/// | 23 | 0 to 64 | payload |
namespace wire {

constexpr size_t RECORD_HEADER_BYTES = 6;
constexpr size_t RECORD_MIN_BYTES = 14;
constexpr size_t RECORD_MAX_BYTES = 65535;
constexpr size_t CAN_RECORD_MIN_BYTES = 23;
constexpr size_t CAN_PAYLOAD_MAX_BYTES = 64;
constexpr size_t CAN_RECORD_MAX_BYTES = CAN_RECORD_MIN_BYTES + CAN_PAYLOAD_MAX_BYTES;
constexpr uint16_t CAN_RECORD_TYPE = 11;
constexpr uint32_t EXTENDED_ID_FLAG = 0x80000000;

/// The fixed beginning of a record.
struct RecordHeader
{
    uint16_t lengthBytes = 0; ///< whole record
    uint16_t type = 0;
    uint16_t zero = 0; ///< anything else is not a record

    bool operator==(const RecordHeader&) const = default;
};

/// A CAN frame record, decoded.
struct CanRecord
{
    uint64_t timestampUs = 0;
    uint8_t channel = 0;
    uint8_t frameKind = 0;
    uint8_t stateError = 0;
    uint8_t type = 0;        ///< value of cantype_t; 255 stands for every larger one
    uint32_t id = 0;         ///< without the flag for its width
    uint8_t lengthBytes = 0; ///< payload, 0 to 64
    std::array<uint8_t, CAN_PAYLOAD_MAX_BYTES> payload{};

    std::span<const uint8_t> data() const { return std::span(payload).first(lengthBytes); }
};

/// Why bytes are no record.
enum class RecordError
{
    NONE,
    INCOMPLETE,      ///< more bytes are needed
    TOO_SHORT,       ///< the length field is below the least a record can have
    NONZERO_FIELD,   ///< the third field is not zero
    LENGTH_MISMATCH, ///< a CAN frame whose payload does not fill the record
    PAYLOAD_TOO_LONG ///< a CAN frame with more than 64 payload bytes
};

/// A short text for an error, for diagnostics.
const char* textOf(RecordError error);

/// Reads the first RECORD_HEADER_BYTES bytes. `bytes` holds at least that many.
///
/// Inline and without a loop: it runs for every record that is received, and the general conversion costs more
/// there than all other checks.
inline RecordHeader readHeader(const uint8_t* bytes)
{
    const auto word = [bytes](size_t offset) {
        return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
    };
    return {.lengthBytes = word(0), .type = word(2), .zero = word(4)};
}

/// Writes the first RECORD_HEADER_BYTES bytes.
void writeHeader(uint8_t* bytes, const RecordHeader& header);

/// Tests whether `bytes` begins with a whole, well-formed record.
/// @return NONE if so: the record then has readHeader(bytes).lengthBytes bytes
RecordError checkRecord(std::span<const uint8_t> bytes);

/// Length of the whole, well-formed CAN frame record at `bytes`; 0 if none stands there. The quick form of
/// checkRecord() for the records that nearly every stream consists of.
inline size_t wholeCanRecordBytes(const uint8_t* bytes, size_t sizeBytes)
{
    constexpr uint64_t TYPE_AND_ZERO = uint64_t{CAN_RECORD_TYPE} << 16;
    if (sizeBytes < CAN_RECORD_MIN_BYTES) {
        return 0;
    }
    const auto start = getBigEndian<uint64_t>(bytes); // length, type, zero and the time stamp's first two bytes
    const size_t length = start >> 48;
    const size_t payloadBytes = length - CAN_RECORD_MIN_BYTES; // wraps around if the length is too small
    const bool isWhole = (start >> 16 & 0xFFFFFFFF) == TYPE_AND_ZERO && payloadBytes <= CAN_PAYLOAD_MAX_BYTES &&
                         length <= sizeBytes && bytes[CAN_RECORD_MIN_BYTES - 1] == payloadBytes;
    return isWhole ? length : 0;
}

/// What stands in front of the payload of a CAN frame record.
struct CanRecordStart
{
    uint64_t timestampUs = 0;
    uint16_t recordType = CAN_RECORD_TYPE;
    uint8_t channel = 0;
    uint8_t frameKind = 0;
    uint8_t stateError = 0;
    uint8_t type = 0;
    uint32_t id = 0;
    uint8_t lengthBytes = 0; ///< payload; above 64 it counts as 64
};

/// Serialises a frame whose payload stands elsewhere. CAN_PAYLOAD_MAX_BYTES are read there, however short the frame
/// is, and room for the longest record is needed: copies of a fixed size cost less than one of a length known at
/// run time.
/// @return length of the record in bytes
size_t encode(const CanRecordStart& start, const uint8_t* payload, std::span<uint8_t, CAN_RECORD_MAX_BYTES> out);

/// Serialises a frame. Room for the longest record is needed, also when the frame is short.
/// @return length of the record in bytes
size_t encode(const CanRecord& record, std::span<uint8_t, CAN_RECORD_MAX_BYTES> out);

/// Decodes a whole record of type 11.
/// @return the frame; nothing if `bytes` is not exactly one well-formed record of that type
std::optional<CanRecord> decodeCanRecord(std::span<const uint8_t> bytes);

} // namespace wire
