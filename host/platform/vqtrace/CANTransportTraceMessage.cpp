#include <vqtrace/CANTransportTraceMessage.h>

#include "vqtrace/MessageText.h"
#include "vqutil/TextForm.h"

#include <wire/MessageRecord.h>

#include <utility>

static_assert(CANTransportTraceMessage::MESSAGE_ID == wire::TRANSPORT_RECORD_TYPE);

CANTransportTraceMessage::CANTransportTraceMessage(msgid_t messageId, unsigned long messageTime,
                                                   std::vector<uint8_t> payload, unsigned int id,
                                                   cantype_t frameType)
    : MessageBase(messageId, messageTime), data(std::move(payload)), canId(id), type(frameType)
{
}

CANTransportTraceMessage::~CANTransportTraceMessage() = default;

std::unique_ptr<MessageBase> CANTransportTraceMessage::clone() const
{
    return std::make_unique<CANTransportTraceMessage>(*this);
}

void CANTransportTraceMessage::print(std::ostream& stream) const
{
    vqhost::writeText(stream, "id=0x" + vqhost::hexadecimal(canId) + "; type=" + vqhost::textOf(type) +
                                  "; length=" + vqhost::decimal(data.size()) + "; data=" + vqhost::hexBytes(data));
}

void CANTransportTraceMessage::encode(std::vector<uint8_t>& out, size_t offset) const
{
    wire::encodeTransportRecord(msgId, time, canId, type, data, out, offset);
}

std::ostream& operator<<(std::ostream& stream, const CANTransportTraceMessage& message)
{
    message.print(stream);
    return stream;
}
