#pragma once

#include <vqtrace/MessageBase.h>
#include <vqtrace/cantype.h>

/// One whole ISO 15765-2 message.
class VQ_API CANTransportTraceMessage : public MessageBase
{
public:
    /// Message identifier of a transport message.
    static constexpr msgid_t MESSAGE_ID = 0x8014;

    CANTransportTraceMessage(msgid_t messageId, unsigned long messageTime, std::vector<uint8_t> payload,
                             unsigned int id, cantype_t frameType);
    CANTransportTraceMessage(const CANTransportTraceMessage&) = default;
    CANTransportTraceMessage& operator=(const CANTransportTraceMessage&) = default;
    ~CANTransportTraceMessage() override;

    std::unique_ptr<MessageBase> clone() const override;
    void print(std::ostream& stream) const override;

    std::vector<uint8_t> data; ///< payload
    uint32_t canId;            ///< CAN identifier of the frames that carry it
    cantype_t type;            ///< type of these frames

private:
    void encode(std::vector<uint8_t>& out, size_t offset) const override;
};

/// Writes the message for a person: "id=0x", identifier in hexadecimal, "; type=", type, "; length=", payload
/// bytes in decimal, "; data=" and the payload as two-digit hexadecimal numbers behind a blank each. The
/// stream's format flags have no effect and stay.
VQ_API std::ostream& operator<<(std::ostream& stream, const CANTransportTraceMessage& message);
