#pragma once

#include <vqtrace/MessageBase.h>

/// A command with a text for a process of the logger.
class VQ_API SystemMessage : public MessageBase
{
public:
    /// Message identifier of a system message.
    static constexpr msgid_t MESSAGE_ID = 128;
    /// Command that registers a CAN identifier with the peer; the text says which.
    static constexpr uint16_t COMMAND_REGISTER = 19;

    SystemMessage(msgid_t messageId, unsigned long messageTime, uint16_t systemCommand, std::string commandText);
    SystemMessage(const SystemMessage&) = default;
    SystemMessage& operator=(const SystemMessage&) = default;
    ~SystemMessage() override;

    std::unique_ptr<MessageBase> clone() const override;
    void print(std::ostream& stream) const override;

    /// Removes the NUL characters at the end of `text`.
    void stripNullChar();

    uint16_t command; ///< what the receiver is to do
    std::string text; ///< argument of the command; its form follows the command

private:
    void encode(std::vector<uint8_t>& out, size_t offset) const override;
};

/// Writes the message for a person: "command=", number, "; text=", text.
VQ_API std::ostream& operator<<(std::ostream& stream, const SystemMessage& message);
