#include "vqtrace/MessageDecoder.h"

#include <vqtrace/CANExtTraceMessage.h>
#include <vqtrace/CANTransportTraceMessage.h>
#include <vqtrace/SystemMessage.h>

#include <wire/MessageRecord.h>

#include <utility>

namespace vqhost {

namespace {

std::unique_ptr<MessageBase> decodeCan(std::span<const uint8_t> bytes)
{
    const auto record = wire::decodeCanRecord(bytes);
    if (!record) {
        return nullptr;
    }
    return std::make_unique<CANExtTraceMessage>(
        CANExtTraceMessage::MESSAGE_ID, record->timestampUs, record->channel,
        static_cast<canframe_t>(record->frameKind), static_cast<canstaterr_t>(record->stateError),
        static_cast<cantype_t>(record->type), record->lengthBytes, record->id, record->payload.data());
}

std::unique_ptr<MessageBase> decodeSystem(std::span<const uint8_t> bytes)
{
    auto record = wire::decodeSystemRecord(bytes);
    if (!record) {
        return nullptr;
    }
    return std::make_unique<SystemMessage>(SystemMessage::MESSAGE_ID, record->timestampUs, record->command,
                                           std::move(record->text));
}

std::unique_ptr<MessageBase> decodeTransport(std::span<const uint8_t> bytes)
{
    auto record = wire::decodeTransportRecord(bytes);
    if (!record) {
        return nullptr;
    }
    return std::make_unique<CANTransportTraceMessage>(CANTransportTraceMessage::MESSAGE_ID, record->timestampUs,
                                                      std::move(record->payload), record->id,
                                                      static_cast<cantype_t>(record->type));
}

std::unique_ptr<MessageBase> decodeOther(std::span<const uint8_t> bytes, const wire::RecordHeader& header)
{
    auto message = std::make_unique<MessageBase>(header.type, wire::timestampOf(bytes.data()));
    message->byteArray.assign(bytes.begin(), bytes.end());
    return message;
}

} // namespace

std::unique_ptr<MessageBase> decodeMessage(std::span<const uint8_t> record)
{
    if (wire::checkRecord(record) != wire::RecordError::NONE) {
        return nullptr;
    }
    const wire::RecordHeader header = wire::readHeader(record.data());
    if (header.lengthBytes != record.size()) {
        return nullptr;
    }
    switch (header.type) {
    case wire::CAN_RECORD_TYPE:
        return decodeCan(record);
    case wire::SYSTEM_RECORD_TYPE:
        return decodeSystem(record);
    case wire::TRANSPORT_RECORD_TYPE:
        return decodeTransport(record);
    default:
        return decodeOther(record, header);
    }
}

} // namespace vqhost
