#include <vqtrace/CANExtTraceMessage.h>

CANExtTraceMessage::~CANExtTraceMessage() = default;

std::unique_ptr<MessageBase> CANExtTraceMessage::clone() const
{
    return std::make_unique<CANExtTraceMessage>(*this);
}

std::ostream& operator<<(std::ostream& stream, const CANExtTraceMessage& message)
{
    message.print(stream);
    return stream;
}
