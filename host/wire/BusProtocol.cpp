#include <wire/BusProtocol.h>

#include <wire/BigEndian.h>
#include <wire/Protocol.h>
#include <wire/TraceRecord.h>

namespace wire {

namespace {

constexpr size_t KIND_OFFSET = 3;

void appendHeader(std::vector<uint8_t>& packet, BusKind kind)
{
    packet.insert(packet.end(), {'V', 'Q', PROTOCOL_VERSION, static_cast<uint8_t>(kind)});
}

void appendName(std::vector<uint8_t>& packet, std::string_view name)
{
    packet.push_back(static_cast<uint8_t>(name.size()));
    packet.insert(packet.end(), name.begin(), name.end());
}

/// Body of a packet of our version and of the given kind.
std::optional<std::span<const uint8_t>> bodyOf(std::span<const uint8_t> packet, BusKind kind)
{
    if (versionOf(packet) != PROTOCOL_VERSION || packet[KIND_OFFSET] != static_cast<uint8_t>(kind)) {
        return std::nullopt;
    }
    return packet.subspan(PACKET_HEADER_BYTES);
}

/// Takes a name with its length off the front of `rest`.
std::optional<std::string_view> takeName(std::span<const uint8_t>& rest)
{
    if (rest.empty() || rest.size() - 1 < rest[0]) {
        return std::nullopt;
    }
    const std::span<const uint8_t> name = rest.subspan(1, rest[0]);
    rest = rest.subspan(1 + name.size());
    return std::string_view(reinterpret_cast<const char*>(name.data()), name.size());
}

/// True if the bytes are one record by its length field. What is in it is the receiver's affair.
bool isOneRecord(std::span<const uint8_t> bytes)
{
    return bytes.size() >= RECORD_MIN_BYTES && readHeader(bytes.data()).lengthBytes == bytes.size();
}

} // namespace

bool isBusName(std::string_view name)
{
    return !name.empty() && name.size() <= BUS_NAME_MAX_BYTES && name.find('\0') == std::string_view::npos;
}

bool appendBusMessage(std::vector<uint8_t>& packet, const BusMessage& message)
{
    if (message.source.size() > BUS_NAME_MAX_BYTES || !isBusName(message.destination) ||
        !isOneRecord(message.record)) {
        return false;
    }
    appendHeader(packet, BusKind::MESSAGE);
    appendName(packet, message.source);
    appendName(packet, message.destination);
    packet.insert(packet.end(), message.record.begin(), message.record.end());
    return true;
}

std::optional<BusMessage> decodeBusMessage(std::span<const uint8_t> packet)
{
    auto rest = bodyOf(packet, BusKind::MESSAGE);
    if (!rest) {
        return std::nullopt;
    }
    const auto source = takeName(*rest);
    if (!source) {
        return std::nullopt;
    }
    const auto destination = takeName(*rest);
    if (!destination || !isBusName(*destination) || !isOneRecord(*rest)) {
        return std::nullopt;
    }
    return BusMessage{.source = *source, .destination = *destination, .record = *rest};
}

std::vector<uint8_t> encodeBusDropped(uint64_t count)
{
    std::vector<uint8_t> packet;
    packet.reserve(PACKET_HEADER_BYTES + sizeof count);
    appendHeader(packet, BusKind::DROPPED);
    packet.resize(packet.size() + sizeof count);
    putBigEndian(packet.data() + PACKET_HEADER_BYTES, count);
    return packet;
}

std::optional<uint64_t> decodeBusDropped(std::span<const uint8_t> packet)
{
    const auto body = bodyOf(packet, BusKind::DROPPED);
    if (!body || body->size() != sizeof(uint64_t)) {
        return std::nullopt;
    }
    return getBigEndian<uint64_t>(body->data());
}

} // namespace wire
