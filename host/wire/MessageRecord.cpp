#include <wire/MessageRecord.h>

#include <wire/BigEndian.h>

#include <algorithm>

namespace wire {

namespace {

constexpr size_t TIMESTAMP_OFFSET = RECORD_HEADER_BYTES;
constexpr size_t COMMAND_OFFSET = RECORD_MIN_BYTES;
constexpr size_t ID_OFFSET = RECORD_MIN_BYTES;
constexpr size_t FRAME_TYPE_OFFSET = ID_OFFSET + 4;

/// True if `bytes` is exactly one record of the type and at least `leastBytes` long.
bool isWhole(std::span<const uint8_t> bytes, uint16_t type, size_t leastBytes)
{
    if (bytes.size() < leastBytes || checkRecord(bytes) != RecordError::NONE) {
        return false;
    }
    const RecordHeader header = readHeader(bytes.data());
    return header.type == type && header.lengthBytes == bytes.size();
}

} // namespace

void writeRecordStart(uint8_t* bytes, size_t recordBytes, uint16_t type, uint64_t timestampUs)
{
    writeHeader(bytes,
                {.lengthBytes = static_cast<uint16_t>(std::min(recordBytes, RECORD_MAX_BYTES)), .type = type});
    putBigEndian(bytes + TIMESTAMP_OFFSET, timestampUs);
}

uint64_t timestampOf(const uint8_t* bytes)
{
    return getBigEndian<uint64_t>(bytes + TIMESTAMP_OFFSET);
}

void encodeSystemRecord(uint16_t type, uint64_t timestampUs, uint16_t command, std::string_view text,
                        std::vector<uint8_t>& out, size_t offset)
{
    const size_t recordBytes = SYSTEM_RECORD_MIN_BYTES + text.size();
    out.resize(offset + recordBytes);
    uint8_t* const bytes = out.data() + offset;
    writeRecordStart(bytes, recordBytes, type, timestampUs);
    putBigEndian(bytes + COMMAND_OFFSET, command);
    std::copy(text.begin(), text.end(), bytes + SYSTEM_RECORD_MIN_BYTES);
}

void encodeTransportRecord(uint16_t type, uint64_t timestampUs, uint32_t id, uint32_t frameType,
                           std::span<const uint8_t> payload, std::vector<uint8_t>& out, size_t offset)
{
    const size_t recordBytes = TRANSPORT_RECORD_MIN_BYTES + payload.size();
    out.resize(offset + recordBytes);
    uint8_t* const bytes = out.data() + offset;
    writeRecordStart(bytes, recordBytes, type, timestampUs);
    putBigEndian(bytes + ID_OFFSET, id);
    putBigEndian(bytes + FRAME_TYPE_OFFSET, frameType);
    std::copy(payload.begin(), payload.end(), bytes + TRANSPORT_RECORD_MIN_BYTES);
}

std::optional<SystemRecord> decodeSystemRecord(std::span<const uint8_t> bytes)
{
    if (!isWhole(bytes, SYSTEM_RECORD_TYPE, SYSTEM_RECORD_MIN_BYTES)) {
        return std::nullopt;
    }
    return SystemRecord{.timestampUs = timestampOf(bytes.data()),
                        .command = getBigEndian<uint16_t>(&bytes[COMMAND_OFFSET]),
                        .text = std::string(bytes.begin() + SYSTEM_RECORD_MIN_BYTES, bytes.end())};
}

std::optional<TransportRecord> decodeTransportRecord(std::span<const uint8_t> bytes)
{
    if (!isWhole(bytes, TRANSPORT_RECORD_TYPE, TRANSPORT_RECORD_MIN_BYTES)) {
        return std::nullopt;
    }
    return TransportRecord{.timestampUs = timestampOf(bytes.data()),
                           .id = getBigEndian<uint32_t>(&bytes[ID_OFFSET]),
                           .type = getBigEndian<uint32_t>(&bytes[FRAME_TYPE_OFFSET]),
                           .payload =
                               std::vector<uint8_t>(bytes.begin() + TRANSPORT_RECORD_MIN_BYTES, bytes.end())};
}

} // namespace wire
