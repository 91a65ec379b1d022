#include <wire/TraceRecord.h>

#include <wire/BigEndian.h>

#include <algorithm>
#include <cstring>

namespace wire {

namespace {

constexpr size_t TYPE_OFFSET = 2;
constexpr size_t ZERO_OFFSET = 4;
constexpr size_t TIMESTAMP_OFFSET = 6;
constexpr size_t CHANNEL_OFFSET = 14;
constexpr size_t FRAME_KIND_OFFSET = 15;
constexpr size_t STATE_ERROR_OFFSET = 16;
constexpr size_t FRAME_TYPE_OFFSET = 17;
constexpr size_t ID_OFFSET = 18;
constexpr size_t LENGTH_OFFSET = 22;
constexpr uint32_t ID_MASK = 0x1FFFFFFF;

constexpr bool isExtended(uint8_t type)
{
    return type == 1 || type == 3;
}

} // namespace

const char* textOf(RecordError error)
{
    switch (error) {
    case RecordError::NONE:
        return "no error";
    case RecordError::INCOMPLETE:
        return "the record is incomplete";
    case RecordError::TOO_SHORT:
        return "the length field is below 14";
    case RecordError::NONZERO_FIELD:
        return "the field behind the type is not zero";
    case RecordError::LENGTH_MISMATCH:
        return "the payload does not fill the CAN frame record";
    case RecordError::PAYLOAD_TOO_LONG:
        return "the CAN frame has more than 64 payload bytes";
    }
    return "unknown error";
}

void writeHeader(uint8_t* bytes, const RecordHeader& header)
{
    putBigEndian(bytes, header.lengthBytes);
    putBigEndian(bytes + TYPE_OFFSET, header.type);
    putBigEndian(bytes + ZERO_OFFSET, header.zero);
}

RecordError checkRecord(std::span<const uint8_t> bytes)
{
    if (bytes.size() < RECORD_HEADER_BYTES) {
        return RecordError::INCOMPLETE;
    }
    const RecordHeader header = readHeader(bytes.data());
    if (header.lengthBytes < RECORD_MIN_BYTES) {
        return RecordError::TOO_SHORT;
    }
    if (header.zero != 0) {
        return RecordError::NONZERO_FIELD;
    }
    if (header.type != CAN_RECORD_TYPE) {
        return bytes.size() < header.lengthBytes ? RecordError::INCOMPLETE : RecordError::NONE;
    }
    // What the header alone shows is said at once: a wrong length must not make the reader wait for bytes.
    if (header.lengthBytes < CAN_RECORD_MIN_BYTES) {
        return RecordError::LENGTH_MISMATCH;
    }
    if (header.lengthBytes > CAN_RECORD_MAX_BYTES) {
        return RecordError::PAYLOAD_TOO_LONG;
    }
    if (bytes.size() < header.lengthBytes) {
        return RecordError::INCOMPLETE;
    }
    return header.lengthBytes == CAN_RECORD_MIN_BYTES + bytes[LENGTH_OFFSET] ? RecordError::NONE
                                                                             : RecordError::LENGTH_MISMATCH;
}

size_t encode(const CanRecordStart& start, const uint8_t* payload, std::span<uint8_t, CAN_RECORD_MAX_BYTES> out)
{
    uint8_t* const bytes = out.data();
    const size_t payloadBytes = std::min<size_t>(start.lengthBytes, CAN_PAYLOAD_MAX_BYTES);
    const size_t recordBytes = CAN_RECORD_MIN_BYTES + payloadBytes;
    writeHeader(bytes, {.lengthBytes = static_cast<uint16_t>(recordBytes), .type = start.recordType});
    putBigEndian(bytes + TIMESTAMP_OFFSET, start.timestampUs);
    bytes[CHANNEL_OFFSET] = start.channel;
    bytes[FRAME_KIND_OFFSET] = start.frameKind;
    bytes[STATE_ERROR_OFFSET] = start.stateError;
    bytes[FRAME_TYPE_OFFSET] = start.type;
    putBigEndian(bytes + ID_OFFSET, (start.id & ID_MASK) | (isExtended(start.type) ? EXTENDED_ID_FLAG : 0));
    bytes[LENGTH_OFFSET] = static_cast<uint8_t>(payloadBytes);
    std::memcpy(bytes + CAN_RECORD_MIN_BYTES, payload, CAN_PAYLOAD_MAX_BYTES);
    return recordBytes;
}

size_t encode(const CanRecord& record, std::span<uint8_t, CAN_RECORD_MAX_BYTES> out)
{
    return encode(CanRecordStart{.timestampUs = record.timestampUs,
                                 .channel = record.channel,
                                 .frameKind = record.frameKind,
                                 .stateError = record.stateError,
                                 .type = record.type,
                                 .id = record.id,
                                 .lengthBytes = record.lengthBytes},
                  record.payload.data(), out);
}

std::optional<CanRecord> decodeCanRecord(std::span<const uint8_t> bytes)
{
    if (checkRecord(bytes) != RecordError::NONE) {
        return std::nullopt;
    }
    const RecordHeader header = readHeader(bytes.data());
    if (header.type != CAN_RECORD_TYPE || header.lengthBytes != bytes.size()) {
        return std::nullopt;
    }
    CanRecord record;
    record.timestampUs = getBigEndian<uint64_t>(&bytes[TIMESTAMP_OFFSET]);
    record.channel = bytes[CHANNEL_OFFSET];
    record.frameKind = bytes[FRAME_KIND_OFFSET];
    record.stateError = bytes[STATE_ERROR_OFFSET];
    record.type = bytes[FRAME_TYPE_OFFSET];
    record.id = getBigEndian<uint32_t>(&bytes[ID_OFFSET]) & ID_MASK;
    record.lengthBytes = bytes[LENGTH_OFFSET];
    std::copy_n(bytes.begin() + CAN_RECORD_MIN_BYTES, record.lengthBytes, record.payload.begin());
    return record;
}

} // namespace wire
