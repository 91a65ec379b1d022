#include <capture/PcapngReader.h>

#include <capture/Counted.h>
#include <capture/SocketCanPacket.h>

#include <algorithm>
#include <limits>

namespace capture {

namespace {

constexpr size_t SECTION_MIN_BYTES = 16;
constexpr size_t INTERFACE_MIN_BYTES = 8;
constexpr size_t STATISTICS_MIN_BYTES = 12;
constexpr size_t PACKET_MIN_BYTES = 20;
constexpr size_t SIMPLE_PACKET_MIN_BYTES = 4;
constexpr size_t NAME_MAX_BYTES = 64;
constexpr uint16_t DROPS_UNKNOWN = 0xFFFF;
constexpr uint64_t NS_PER_US = 1000;
constexpr uint64_t US_PER_SECOND = 1000000;
constexpr unsigned NANO_EXPONENT = 9;
constexpr uint8_t BINARY_RESOLUTION = 0x80;
__extension__ using uint128 = unsigned __int128;

/// A time in units of the interface as nanoseconds; below 2^94.
uint128 nanosecondsOf(uint64_t time, uint8_t resolution)
{
    const unsigned exponent = resolution & static_cast<uint8_t>(~BINARY_RESOLUTION);
    if ((resolution & BINARY_RESOLUTION) != 0) {
        return (uint128{time} * NS_PER_US * US_PER_SECOND) >> exponent;
    }
    uint128 nanoseconds = time;
    for (unsigned digit = exponent; digit < NANO_EXPONENT; ++digit) {
        nanoseconds *= 10;
    }
    for (unsigned digit = NANO_EXPONENT; digit < exponent && nanoseconds != 0; ++digit) {
        nanoseconds /= 10;
    }
    return nanoseconds;
}

/// A name that stands as one word in a log line.
std::string wordOf(std::span<const uint8_t> text)
{
    std::string word(text.begin(), text.end());
    word.resize(std::min({word.size(), word.find('\0'), NAME_MAX_BYTES}));
    std::ranges::replace_if(
        word, [](char c) { return static_cast<unsigned char>(c) <= ' '; }, '_');
    return word;
}

Direction directionOf(uint32_t flags)
{
    switch (flags & pcapng::DIRECTION_MASK) {
    case pcapng::INBOUND:
        return Direction::RECEIVED;
    case pcapng::OUTBOUND:
        return Direction::SENT;
    default:
        return Direction::UNKNOWN;
    }
}

} // namespace

bool PcapngReader::next(CaptureFrame& frame)
{
    if (hasEnded) {
        return false;
    }
    try {
        while (blocks.next()) {
            if (blocks.type() == pcapng::SECTION_HEADER) {
                takeSection();
            } else if (blocks.type() == pcapng::INTERFACE_DESCRIPTION) {
                takeInterface();
            } else if (blocks.type() == pcapng::INTERFACE_STATISTICS) {
                takeStatistics();
            } else if (takePacket(frame)) {
                return true;
            }
        }
    } catch (const CaptureError& error) {
        hasEnded = !error.canContinue();
        throw;
    }
    return false;
}

void PcapngReader::takeSection()
{
    if (blocks.body().size() < SECTION_MIN_BYTES) {
        blocks.refuse("the section header is too short", false);
    }
    const auto version = blocks.number<uint16_t>(blocks.body(), 4);
    if (version != pcapng::VERSION_MAJOR) {
        blocks.refuse("the section is of version " + std::to_string(version) + ", not 1", false);
    }
    earlierDropped += droppedInSection();
    earlierInterfaces += interfaces.size();
    interfaces.clear();
}

void PcapngReader::takeInterface()
{
    const std::span<const uint8_t> body = blocks.body();
    if (body.size() < INTERFACE_MIN_BYTES) {
        blocks.refuse("the interface description is too short", false);
    }
    Interface interface;
    interface.isCan = blocks.number<uint16_t>(body, 0) == LINK_TYPE_SOCKETCAN;
    blocks.forEachOption(body.subspan(INTERFACE_MIN_BYTES), [&](uint16_t option, std::span<const uint8_t> value) {
        if (option == pcapng::INTERFACE_NAME) {
            interface.name = wordOf(value);
        } else if (option == pcapng::INTERFACE_RESOLUTION && value.size() == 1) {
            interface.resolution = value[0];
        } else if (option == pcapng::INTERFACE_OFFSET && value.size() == sizeof(uint64_t)) {
            interface.offsetSeconds = static_cast<int64_t>(blocks.number<uint64_t>(value, 0));
        }
    });
    if (interface.name.empty()) {
        interface.name = "can" + std::to_string(earlierInterfaces + interfaces.size());
    }
    interfaces.push_back(std::move(interface));
}

void PcapngReader::takeStatistics()
{
    const std::span<const uint8_t> body = blocks.body();
    if (body.size() < STATISTICS_MIN_BYTES) {
        return; // it says nothing about a frame, so nothing is lost with it
    }
    const auto index = blocks.number<uint32_t>(body, 0);
    if (index >= interfaces.size() || !interfaces[index].isCan) {
        return;
    }
    blocks.forEachOption(body.subspan(STATISTICS_MIN_BYTES), [&](uint16_t option, std::span<const uint8_t> value) {
        if (option == pcapng::STATISTICS_DROPPED && value.size() == sizeof(uint64_t)) {
            interfaces[index].droppedReported = blocks.number<uint64_t>(value, 0);
        }
    });
}

bool PcapngReader::takePacket(CaptureFrame& frame)
{
    const std::span<const uint8_t> body = blocks.body();
    const bool isSimple = blocks.type() == pcapng::SIMPLE_PACKET;
    const bool isObsolete = blocks.type() == pcapng::PACKET;
    const size_t headBytes = isSimple ? SIMPLE_PACKET_MIN_BYTES : PACKET_MIN_BYTES;
    if (body.size() < headBytes) {
        blocks.refuse("the packet block is too short", true);
    }
    uint32_t index = 0; // a simple packet always belongs to the first interface and has no time
    uint64_t time = 0;
    if (!isSimple) {
        index = isObsolete ? blocks.number<uint16_t>(body, 0) : blocks.number<uint32_t>(body, 0);
        time = uint64_t{blocks.number<uint32_t>(body, 4)} << 32 | blocks.number<uint32_t>(body, 8);
    }
    if (index >= interfaces.size()) {
        blocks.refuse("the packet's interface " + std::to_string(index) + " was not described", true);
    }
    Interface& interface = interfaces[index];
    if (!interface.isCan) {
        ++skippedPackets;
        return false;
    }
    const std::span<const uint8_t> rest = body.subspan(headBytes);
    // The length field of a simple packet is that on the wire; padding behind a frame does no harm.
    const size_t packetBytes = isSimple ? rest.size() : blocks.number<uint32_t>(body, 12);
    if (packetBytes > rest.size()) {
        blocks.refuse("the packet is longer than its block", true);
    }
    frame.direction = Direction::UNKNOWN;
    frame.droppedBefore = 0;
    if (isObsolete && blocks.number<uint16_t>(body, 2) != DROPS_UNKNOWN) {
        frame.droppedBefore = blocks.number<uint16_t>(body, 2);
    }
    takePacketOptions(rest.subspan(std::min(pcapng::padded(packetBytes), rest.size())), frame);
    interface.droppedSeen += frame.droppedBefore;
    setTime(interface, time, frame);
    frame.frame.interfaceName = interface.name;
    if (const std::string reason = decodeSocketCan(rest.first(packetBytes), frame.frame); !reason.empty()) {
        blocks.refuse(reason, true);
    }
    return true;
}

void PcapngReader::takePacketOptions(std::span<const uint8_t> options, CaptureFrame& frame) const
{
    blocks.forEachOption(options, [&](uint16_t option, std::span<const uint8_t> value) {
        if (option == pcapng::PACKET_FLAGS && value.size() == sizeof(uint32_t)) {
            frame.direction = directionOf(blocks.number<uint32_t>(value, 0));
        } else if (option == pcapng::PACKET_DROP_COUNT && value.size() == sizeof(uint64_t)) {
            frame.droppedBefore = blocks.number<uint64_t>(value, 0);
        }
    });
}

void PcapngReader::setTime(const Interface& interface, uint64_t time, CaptureFrame& frame) const
{
    constexpr uint128 LIMIT_NS = uint128{std::numeric_limits<uint64_t>::max()} * NS_PER_US;
    const uint128 sinceOffset = nanosecondsOf(time, interface.resolution);
    const bool isNegative = interface.offsetSeconds < 0;
    const auto seconds = static_cast<uint64_t>(interface.offsetSeconds);
    const uint128 shift = uint128{isNegative ? ~seconds + 1 : seconds} * NS_PER_US * US_PER_SECOND;
    if (isNegative && shift > sinceOffset) {
        blocks.refuse("the time stamp is out of range", true);
    }
    const uint128 nanoseconds = isNegative ? sinceOffset - shift : sinceOffset + shift;
    if (nanoseconds >= LIMIT_NS) {
        blocks.refuse("the time stamp is out of range", true);
    }
    frame.frame.timestampUs = static_cast<uint64_t>(nanoseconds / NS_PER_US);
    frame.nanoseconds = static_cast<uint16_t>(nanoseconds % NS_PER_US);
}

uint64_t PcapngReader::droppedInSection() const
{
    uint64_t dropped = 0;
    for (const Interface& interface : interfaces) {
        dropped += std::max(interface.droppedSeen, interface.droppedReported);
    }
    return dropped;
}

std::vector<std::string> PcapngReader::remarks() const
{
    std::vector<std::string> texts;
    if (skippedPackets != 0) {
        texts.push_back(counted(skippedPackets, "packet of an interface other than CAN was",
                                "packets of interfaces other than CAN were") +
                        " skipped");
    }
    if (const uint64_t dropped = earlierDropped + droppedInSection(); dropped != 0) {
        texts.push_back(counted(dropped, "frame was", "frames were") + " lost when this was recorded");
    }
    return texts;
}

} // namespace capture
