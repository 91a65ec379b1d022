#include <capture/PcapngEncoder.h>

#include <capture/CaptureError.h>
#include <capture/Counted.h>
#include <capture/PcapngFormat.h>
#include <capture/SocketCanPacket.h>

#include <array>
#include <cstring>
#include <limits>
#include <span>

namespace capture {

namespace {

constexpr uint8_t NANOSECONDS = 9; ///< negative power of ten
constexpr uint64_t NS_PER_US = 1000;
constexpr uint64_t TIMESTAMP_MAX_US = std::numeric_limits<uint64_t>::max() / NS_PER_US - 1;

template <typename Integer>
void append(std::vector<uint8_t>& out, Integer value)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof(value));
}

void appendPadded(std::vector<uint8_t>& out, std::span<const uint8_t> bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
    out.resize(out.size() + pcapng::padded(bytes.size()) - bytes.size());
}

void appendOption(std::vector<uint8_t>& out, uint16_t number, std::span<const uint8_t> value)
{
    append(out, number);
    append(out, static_cast<uint16_t>(value.size()));
    appendPadded(out, value);
}

template <typename Integer>
void appendOption(std::vector<uint8_t>& out, uint16_t number, Integer value)
{
    appendOption(out, number, {reinterpret_cast<const uint8_t*>(&value), sizeof(value)});
}

void appendOption(std::vector<uint8_t>& out, uint16_t number, std::string_view text)
{
    appendOption(out, number, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

/// Frames what its lifetime sees appended with type and length.
class Block
{
public:
    Block(std::vector<uint8_t>& bytes, uint32_t type) : out(bytes), start(bytes.size())
    {
        append(out, type);
        append(out, uint32_t{0});
    }
    ~Block()
    {
        const auto length = static_cast<uint32_t>(out.size() - start + sizeof(uint32_t));
        append(out, length);
        std::memcpy(out.data() + start + sizeof(uint32_t), &length, sizeof(length));
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    void endOptions() { append(out, uint32_t{pcapng::OPTION_END}); }

private:
    std::vector<uint8_t>& out;
    size_t start;
};

/// A time stamp is two words, the upper one first in either byte order.
void appendTime(std::vector<uint8_t>& out, uint64_t time)
{
    append(out, static_cast<uint32_t>(time >> 32));
    append(out, static_cast<uint32_t>(time));
}

uint32_t flagsOf(Direction direction)
{
    switch (direction) {
    case Direction::RECEIVED:
        return pcapng::INBOUND;
    case Direction::SENT:
        return pcapng::OUTBOUND;
    case Direction::UNKNOWN:
        break;
    }
    return 0;
}

} // namespace

void PcapngEncoder::begin(std::vector<uint8_t>& out)
{
    Block block(out, pcapng::SECTION_HEADER);
    append(out, pcapng::BYTE_ORDER_MAGIC);
    append(out, pcapng::VERSION_MAJOR);
    append(out, pcapng::VERSION_MINOR);
    // The file grows while it is written and may end at any time.
    append(out, pcapng::LENGTH_UNKNOWN);
    if (!applicationName.empty()) {
        appendOption(out, pcapng::SECTION_APPLICATION, std::string_view(applicationName));
        block.endOptions();
    }
}

PcapngEncoder::Interface& PcapngEncoder::interfaceOf(const std::string& name, std::vector<uint8_t>& out)
{
    const auto [entry, isNew] = interfaces.try_emplace(name);
    if (isNew) {
        entry->second.number = static_cast<uint32_t>(interfaces.size() - 1);
        Block block(out, pcapng::INTERFACE_DESCRIPTION);
        append(out, LINK_TYPE_SOCKETCAN);
        append(out, uint16_t{0});
        append(out, uint32_t{0}); // no limit to the length of packets
        appendOption(out, pcapng::INTERFACE_NAME, std::string_view(name));
        appendOption(out, pcapng::INTERFACE_RESOLUTION, NANOSECONDS);
        block.endOptions();
    }
    return entry->second;
}

void PcapngEncoder::encode(const CaptureFrame& frame, std::vector<uint8_t>& out)
{
    if (frame.frame.timestampUs > TIMESTAMP_MAX_US) {
        throw CaptureError("the time stamp is beyond what pcapng can hold in nanoseconds", true);
    }
    Interface& interface = interfaceOf(frame.frame.interfaceName, out);
    ++interface.frames;
    interface.dropped += frame.droppedBefore;
    fdMarks += frame.frame.isFd && (frame.frame.fdFlags & FD_FORMAT_FLAG) != 0 ? 1U : 0U;
    interface.lastNs = frame.frame.timestampUs * NS_PER_US + frame.nanoseconds;

    std::array<uint8_t, SOCKETCAN_MAX_BYTES> packet;
    const size_t packetBytes = encodeSocketCan(frame.frame, packet);
    Block block(out, pcapng::ENHANCED_PACKET);
    append(out, interface.number);
    appendTime(out, interface.lastNs);
    append(out, static_cast<uint32_t>(packetBytes));
    append(out, static_cast<uint32_t>(packetBytes));
    appendPadded(out, std::span(packet).first(packetBytes));
    const bool hasDirection = frame.direction != Direction::UNKNOWN;
    if (hasDirection) {
        appendOption(out, pcapng::PACKET_FLAGS, flagsOf(frame.direction));
    }
    if (frame.droppedBefore != 0) {
        appendOption(out, pcapng::PACKET_DROP_COUNT, frame.droppedBefore);
    }
    if (hasDirection || frame.droppedBefore != 0) {
        block.endOptions();
    }
}

void PcapngEncoder::finish(std::vector<uint8_t>& out)
{
    for (const auto& [name, interface] : interfaces) {
        Block block(out, pcapng::INTERFACE_STATISTICS);
        append(out, interface.number);
        appendTime(out, interface.lastNs);
        appendOption(out, pcapng::STATISTICS_RECEIVED, interface.frames + interface.dropped);
        appendOption(out, pcapng::STATISTICS_DROPPED, interface.dropped);
        block.endOptions();
    }
}

std::vector<std::string> PcapngEncoder::losses() const
{
    if (fdMarks == 0) {
        return {};
    }
    return {"pcapng sets bit 2 of the flags of every CAN FD frame; that " + countedFrames(fdMarks) +
            " had it in their digit is not kept"};
}

} // namespace capture
