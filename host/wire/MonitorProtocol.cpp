#include <wire/MonitorProtocol.h>

#include <wire/BigEndian.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace wire {

namespace {

constexpr size_t TYPE_OFFSET = 2;

} // namespace

std::string textOfChannels(const ChannelSet& channels)
{
    std::string text;
    for (size_t channel = 0; channel < channels.size() && !channels.all(); ++channel) {
        if (channels.test(channel)) {
            text.append(text.empty() ? "" : ",").append(std::to_string(channel));
        }
    }
    return text;
}

std::optional<ChannelSet> channelsOfText(std::string_view text)
{
    ChannelSet channels;
    if (text.empty()) {
        return channels.set();
    }
    while (true) {
        uint8_t channel = 0;
        const char* const end = text.data() + text.size();
        const auto [position, error] = std::from_chars(text.data(), end, channel);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        channels.set(channel);
        if (position == end) {
            return channels;
        }
        if (*position != ',') {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<size_t>(position - text.data()) + 1);
    }
}

size_t encodeMonitorFrame(const CanRecord& frame, bool isSent, std::span<uint8_t, CAN_RECORD_MAX_BYTES> out)
{
    const size_t size = encode(frame, out);
    putBigEndian(out.data() + TYPE_OFFSET, isSent ? MONITOR_SENT_TYPE : MONITOR_RECEIVED_TYPE);
    return size;
}

std::array<uint8_t, MONITOR_DROPPED_BYTES> encodeMonitorDropped(uint64_t count)
{
    std::array<uint8_t, MONITOR_DROPPED_BYTES> bytes{};
    writeHeader(bytes.data(),
                {.lengthBytes = static_cast<uint16_t>(MONITOR_DROPPED_BYTES), .type = MONITOR_DROPPED_TYPE});
    putBigEndian(bytes.data() + RECORD_MIN_BYTES, count);
    return bytes;
}

void MonitorDecoder::feed(std::span<const uint8_t> more)
{
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(begin));
    begin = 0;
    bytes.insert(bytes.end(), more.begin(), more.end());
}

bool MonitorDecoder::next(MonitorEvent& event)
{
    const std::span rest = std::span(bytes).subspan(begin);
    const RecordError error = checkRecord(rest);
    if (error == RecordError::INCOMPLETE) {
        return false;
    }
    if (error != RecordError::NONE) {
        throw std::runtime_error(std::string("the virtual logger sends no monitor stream: ") + textOf(error));
    }
    const RecordHeader header = readHeader(rest.data());
    const std::span record = rest.first(header.lengthBytes);
    begin += header.lengthBytes;
    if (header.type == MONITOR_DROPPED_TYPE && record.size() == MONITOR_DROPPED_BYTES) {
        event.dropped = getBigEndian<uint64_t>(record.data() + RECORD_MIN_BYTES);
        if (event.dropped == 0) {
            throw std::runtime_error("the virtual logger sends no monitor stream: a loss of no frames");
        }
        return true;
    }
    event.dropped = 0;
    event.isSent = header.type == MONITOR_SENT_TYPE;
    if (event.isSent || header.type == MONITOR_RECEIVED_TYPE) {
        // Apart from its type it is an ordinary record.
        putBigEndian(record.data() + TYPE_OFFSET, CAN_RECORD_TYPE);
        if (const auto frame = decodeCanRecord(record)) {
            event.frame = *frame;
            return true;
        }
    }
    throw std::runtime_error("the virtual logger sends no monitor stream: unknown record");
}

} // namespace wire
