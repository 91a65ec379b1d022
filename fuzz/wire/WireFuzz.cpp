// Everything that is read off the wire: requests, replies, faults, boards, offsets, process-bus packets, records,
// monitor streams, lists of channels and stage reports. Whatever decodes must encode to the same bytes again.

#include <wire/BusProtocol.h>
#include <wire/MonitorProtocol.h>
#include <wire/Protocol.h>
#include <wire/StageStatistics.h>
#include <wire/TraceRecord.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <stdexcept>
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
    if (wire::isFinish(packet)) {
        require(same(wire::encodeFinish(), packet));
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

/// What was decoded encodes to bytes that decode to the same again; bits that a frame cannot carry are gone by then.
void checkEvent(const wire::MonitorEvent& event)
{
    wire::MonitorDecoder decoder;
    if (event.dropped != 0) {
        decoder.feed(wire::encodeMonitorDropped(event.dropped));
    } else {
        uint8_t bytes[wire::CAN_RECORD_MAX_BYTES] = {};
        decoder.feed(std::span(bytes, wire::encodeMonitorFrame(event.frame, event.isSent, bytes)));
    }
    wire::MonitorEvent again;
    require(decoder.next(again));
    require(again.dropped == event.dropped);
    if (event.dropped == 0) {
        require(again.isSent == event.isSent && again.frame.id == event.frame.id &&
                again.frame.channel == event.frame.channel && same(again.frame.data(), event.frame.data()));
    }
    require(!decoder.next(again));
}

void checkMonitorStream(std::span<const uint8_t> stream)
{
    wire::MonitorDecoder decoder;
    wire::MonitorEvent event;
    try {
        // In two pieces, so that records are cut as well.
        for (const auto& part : {stream.first(stream.size() / 2), stream.subspan(stream.size() / 2)}) {
            decoder.feed(part);
            while (decoder.next(event)) {
                checkEvent(event);
            }
        }
    } catch (const std::runtime_error&) {
        // No monitor's stream.
    }
}

void checkTextsAndReports(std::span<const uint8_t> packet)
{
    if (const auto channels = wire::channelsOfText({reinterpret_cast<const char*>(packet.data()), packet.size()})) {
        require(wire::channelsOfText(wire::textOfChannels(*channels)) == channels);
    }
    if (const auto report = wire::decodeStageReport(packet)) {
        require(same(wire::encodeStageReport(*report), packet));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::span packet(data, size);
    checkProtocol(packet);
    checkBusProtocol(packet);
    checkRecord(packet);
    checkMonitorStream(packet);
    checkTextsAndReports(packet);
    return 0;
}
