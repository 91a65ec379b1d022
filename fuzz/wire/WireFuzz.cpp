// Everything that is read off the wire: requests, replies, faults, boards, offsets, process-bus packets and
// records. Whatever decodes must encode to the same bytes again.

#include <wire/BusProtocol.h>
#include <wire/Protocol.h>
#include <wire/TraceRecord.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

namespace {

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

bool same(std::span<const uint8_t> left, std::span<const uint8_t> right)
{
    return std::ranges::equal(left, right);
}

void checkProtocol(std::span<const uint8_t> packet)
{
    if (const auto request = wire::decodeRequest(packet)) {
        require(same(wire::encodeRequest(*request), packet));
    }
    if (const auto reply = wire::decodeReply(packet)) {
        require(same(wire::encodeReply(*reply), packet));
        if (const auto board = wire::decodeBoard(reply->body)) {
            require(wire::decodeBoard(wire::encodeBoard(*board)) == board);
        }
        if (const auto offset = wire::decodeOffset(reply->body)) {
            require(same(wire::encodeOffset(*offset), reply->body));
        }
    }
    if (const auto fault = wire::decodeFault(packet)) {
        require(same(wire::encodeFault(*fault), packet));
    }
}

void checkBusProtocol(std::span<const uint8_t> packet)
{
    if (const auto message = wire::decodeBusMessage(packet)) {
        std::vector<uint8_t> again;
        require(wire::appendBusMessage(again, *message));
        require(same(again, packet));
    }
    if (const auto count = wire::decodeBusDropped(packet)) {
        require(same(wire::encodeBusDropped(*count), packet));
    }
}

void checkRecord(std::span<const uint8_t> bytes)
{
    if (wire::checkRecord(bytes) == wire::RecordError::NONE) {
        const wire::RecordHeader header = wire::readHeader(bytes.data());
        require(header.lengthBytes <= bytes.size());
        require(header.lengthBytes >= wire::RECORD_MIN_BYTES);
    }
    if (const auto record = wire::decodeCanRecord(bytes)) {
        // Bits that the frame cannot carry go on the way, so the second round is the exact one.
        uint8_t first[wire::CAN_RECORD_MAX_BYTES] = {};
        const size_t sizeBytes = wire::encode(*record, first);
        require(sizeBytes == bytes.size());
        const auto again = wire::decodeCanRecord(std::span(first, sizeBytes));
        require(again.has_value());
        require(again->id == record->id && same(again->data(), record->data()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::span packet(data, size);
    checkProtocol(packet);
    checkBusProtocol(packet);
    checkRecord(packet);
    return 0;
}
