#include <vqtrace/CANTraceMessageBase.h>

#include <vqutil/VQException.h>

#include "vqtrace/MessageText.h"
#include "vqutil/TextForm.h"

#include <wire/TraceRecord.h>

#include <ostream>

namespace {

static_assert(CANTraceMessageBase::MAX_DATA_BYTES == wire::CAN_PAYLOAD_MAX_BYTES);

/// A 32-bit field of the message in its byte of the record: 255 stands for every larger value.
constexpr uint8_t saturated(uint32_t value)
{
    return static_cast<uint8_t>(std::min<uint32_t>(value, UINT8_MAX));
}

} // namespace

CANTraceMessageBase::~CANTraceMessageBase() = default;

std::unique_ptr<MessageBase> CANTraceMessageBase::clone() const
{
    return std::unique_ptr<MessageBase>(new CANTraceMessageBase(*this));
}

void CANTraceMessageBase::print(std::ostream& stream) const
{
    const std::span<const uint8_t> payload(data, std::min<size_t>(length, MAX_DATA_BYTES));
    vqhost::writeText(stream, "channel=" + vqhost::decimal(channel) + "; id=0x" + vqhost::hexadecimal(canId) +
                                  "; type=" + vqhost::textOf(type) + "; length=" + vqhost::decimal(length) +
                                  "; data=" + vqhost::hexBytes(payload));
}

size_t CANTraceMessageBase::copyData(uint8_t* destination, size_t sizeBytes) const
{
    if (length > sizeBytes || length > MAX_DATA_BYTES) {
        throw BufferMismatchException("CANTraceMessageBase too long");
    }
    if (length > 0) {
        std::memcpy(destination, data, length);
    }
    return length;
}

void CANTraceMessageBase::encode(std::vector<uint8_t>& out, size_t offset) const
{
    // Every frame that is sent passes here: one allocation, stores of fixed size, then the unused end is cut off.
    out.resize(offset + wire::CAN_RECORD_MAX_BYTES);
    const std::span<uint8_t, wire::CAN_RECORD_MAX_BYTES> room(out.data() + offset, wire::CAN_RECORD_MAX_BYTES);
    const size_t recordBytes = wire::encode({.timestampUs = time,
                                             .recordType = msgId,
                                             .channel = channel,
                                             .frameKind = saturated(frame),
                                             .stateError = stateErr,
                                             .type = saturated(type),
                                             .id = canId,
                                             .lengthBytes = length},
                                            data, room);
    out.resize(offset + recordBytes);
}
