#pragma once

#include <vqutil/Export.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

/// Identifies the kind of a message; 16 bits wide in every serialised form.
using msgid_t = uint16_t;

/// Base of all messages of the logger.
///
/// A serialised message starts with length of the whole (2 bytes), message identifier (2), zero (2) and time
/// (8), all big-endian; what follows belongs to the derived class.
///
/// Threads: one message is used by one thread at a time.
class VQ_API MessageBase
{
public:
    MessageBase(msgid_t messageId, unsigned long messageTime) : msgId(messageId), time(messageTime) {}
    virtual ~MessageBase();

    /// A copy of the message with its dynamic type.
    virtual std::unique_ptr<MessageBase> clone() const;

    /// Serialises the message.
    ///
    /// @param out         receives the bytes
    /// @param withHeader  true: the whole record; false: without the first six bytes (length, identifier, zero)
    /// @param append      true: behind what `out` holds; false: instead of it
    ///
    /// The length field of a record of 65536 bytes or more holds 65535: such a record cannot travel on the
    /// process bus or in a trace stream, which refuse it by its size.
    void createByteArray(std::vector<uint8_t>& out, bool withHeader, bool append) const;

    /// Writes the message for a person, in one line without a line end.
    virtual void print(std::ostream& stream) const;

    msgid_t msgId;                  ///< kind of the message
    uint64_t time;                  ///< time value in microseconds; 0: not set
    std::vector<uint8_t> byteArray; ///< room for a serialised form that its user wants to keep with the message

protected:
    MessageBase(const MessageBase&) = default;
    MessageBase(MessageBase&&) noexcept = default;
    MessageBase& operator=(const MessageBase&) = default;
    MessageBase& operator=(MessageBase&&) noexcept = default;

private:
    /// Replaces the bytes of `out` from `offset` on by the whole record.
    virtual void encode(std::vector<uint8_t>& out, size_t offset) const;
};

/// Writes MessageBase::print().
VQ_API std::ostream& operator<<(std::ostream& stream, const MessageBase& message);
