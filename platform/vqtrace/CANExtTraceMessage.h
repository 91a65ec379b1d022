#pragma once

#include <vqtrace/CANTraceMessageBase.h>

/// One CAN frame as it is handed to the transmitter, read from a trace device and carried by the process bus.
class VQ_API CANExtTraceMessage : public CANTraceMessageBase
{
public:
    /// Message identifier of a CAN frame, and the record type of CAN frames in a trace stream.
    static constexpr msgid_t MESSAGE_ID = 11;

    using CANTraceMessageBase::CANTraceMessageBase;
    CANExtTraceMessage(const CANExtTraceMessage&) = default;
    CANExtTraceMessage& operator=(const CANExtTraceMessage&) = default;
    ~CANExtTraceMessage() override;

    std::unique_ptr<MessageBase> clone() const override;
};

/// Writes the frame for a person: "channel=", number, "; id=0x", identifier in hexadecimal, "; type=", type,
/// "; length=", length, "; data=" and the payload as two-digit hexadecimal numbers behind a blank each. The
/// stream's format flags have no effect and stay.
VQ_API std::ostream& operator<<(std::ostream& stream, const CANExtTraceMessage& message);
