#include <vqtrace/SystemMessage.h>

#include "vqutil/TextForm.h"

#include <wire/MessageRecord.h>

#include <utility>

static_assert(SystemMessage::MESSAGE_ID == wire::SYSTEM_RECORD_TYPE);

SystemMessage::SystemMessage(msgid_t messageId, unsigned long messageTime, uint16_t systemCommand,
                             std::string commandText)
    : MessageBase(messageId, messageTime), command(systemCommand), text(std::move(commandText))
{
}

SystemMessage::~SystemMessage() = default;

std::unique_ptr<MessageBase> SystemMessage::clone() const
{
    return std::make_unique<SystemMessage>(*this);
}

void SystemMessage::print(std::ostream& stream) const
{
    vqhost::writeText(stream, "command=" + vqhost::decimal(command) + "; text=" + text);
}

void SystemMessage::stripNullChar()
{
    // Without any other character the position is npos, and adding one makes it the beginning.
    text.erase(text.find_last_not_of('\0') + 1);
}

void SystemMessage::encode(std::vector<uint8_t>& out, size_t offset) const
{
    wire::encodeSystemRecord(msgId, time, command, text, out, offset);
}

std::ostream& operator<<(std::ostream& stream, const SystemMessage& message)
{
    message.print(stream);
    return stream;
}
