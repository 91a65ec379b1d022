#include <vqtrace/MessageBase.h>

#include "vqutil/TextForm.h"

#include <wire/MessageRecord.h>

#include <ostream>

MessageBase::~MessageBase() = default;

std::unique_ptr<MessageBase> MessageBase::clone() const
{
    return std::unique_ptr<MessageBase>(new MessageBase(*this));
}

void MessageBase::createByteArray(std::vector<uint8_t>& out, bool withHeader, bool append) const
{
    const size_t offset = append ? out.size() : 0;
    encode(out, offset);
    if (!withHeader) {
        const auto begin = out.begin() + static_cast<std::ptrdiff_t>(offset);
        out.erase(begin, begin + wire::RECORD_HEADER_BYTES);
    }
}

void MessageBase::print(std::ostream& stream) const
{
    vqhost::writeText(stream, "message=" + vqhost::decimal(msgId) + "; time=" + vqhost::decimal(time));
}

void MessageBase::encode(std::vector<uint8_t>& out, size_t offset) const
{
    out.resize(offset + wire::RECORD_MIN_BYTES);
    wire::writeRecordStart(out.data() + offset, wire::RECORD_MIN_BYTES, msgId, time);
}

std::ostream& operator<<(std::ostream& stream, const MessageBase& message)
{
    message.print(stream);
    return stream;
}
