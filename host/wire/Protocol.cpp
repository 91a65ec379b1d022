#include <wire/Protocol.h>

#include <wire/BigEndian.h>

#include <algorithm>

namespace wire {

namespace {

constexpr uint8_t MAGIC[] = {'V', 'Q'};
constexpr size_t VERSION_OFFSET = 2;
constexpr size_t KIND_OFFSET = 3;
constexpr size_t ERROR_NUMBER_BYTES = 4;
constexpr size_t BOARD_BYTES = 9;

std::vector<uint8_t> packetOf(Kind kind)
{
    std::vector<uint8_t> packet;
    packet.reserve(REQUEST_MAX_BYTES);
    for (const uint8_t byte : {MAGIC[0], MAGIC[1], PROTOCOL_VERSION, static_cast<uint8_t>(kind)}) {
        packet.push_back(byte);
    }
    return packet;
}

template <typename Integer>
void append(std::vector<uint8_t>& packet, Integer value)
{
    packet.resize(packet.size() + sizeof(Integer));
    putBigEndian(packet.data() + packet.size() - sizeof(Integer), value);
}

/// Body of a packet of our version and of the given kind.
std::optional<std::span<const uint8_t>> bodyOf(std::span<const uint8_t> packet, Kind kind)
{
    if (versionOf(packet) != PROTOCOL_VERSION || packet[KIND_OFFSET] != static_cast<uint8_t>(kind)) {
        return std::nullopt;
    }
    return packet.subspan(PACKET_HEADER_BYTES);
}

} // namespace

std::vector<uint8_t> encodeRequest(const Request& request)
{
    std::vector<uint8_t> packet = packetOf(request.kind);
    packet.insert(packet.end(), request.text.begin(), request.text.end());
    return packet;
}

std::vector<uint8_t> encodeReply(const Reply& reply)
{
    std::vector<uint8_t> packet = packetOf(Kind::REPLY);
    append(packet, static_cast<uint32_t>(reply.errorNumber));
    packet.insert(packet.end(), reply.body.begin(), reply.body.end());
    return packet;
}

std::vector<uint8_t> encodeFault(int errorNumber)
{
    std::vector<uint8_t> packet = packetOf(Kind::FAULT);
    append(packet, static_cast<uint32_t>(errorNumber));
    return packet;
}

std::vector<uint8_t> encodeFinish()
{
    return packetOf(Kind::FINISH);
}

std::vector<uint8_t> encodeBoard(const Board& board)
{
    std::vector<uint8_t> body;
    append(body, board.boardType);
    append(body, board.deviceCode);
    body.push_back(board.canFdDevice ? 1 : 0);
    return body;
}

std::vector<uint8_t> encodeOffset(uint64_t offsetUs)
{
    std::vector<uint8_t> body;
    append(body, offsetUs);
    return body;
}

std::optional<Request> decodeRequest(std::span<const uint8_t> packet)
{
    if (packet.size() > REQUEST_MAX_BYTES) {
        return std::nullopt;
    }
    for (const Kind kind : {Kind::OPEN_WRITE, Kind::OPEN_READ, Kind::BOARD, Kind::OFFSET, Kind::BUS, Kind::MONITOR,
                            Kind::INJECT, Kind::STATISTICS, Kind::ADDRESS}) {
        if (const auto body = bodyOf(packet, kind)) {
            return Request{.kind = kind, .text = std::string(body->begin(), body->end())};
        }
    }
    return std::nullopt;
}

std::optional<Reply> decodeReply(std::span<const uint8_t> packet)
{
    const auto body = bodyOf(packet, Kind::REPLY);
    if (!body || packet.size() > REQUEST_MAX_BYTES || body->size() < ERROR_NUMBER_BYTES) {
        return std::nullopt;
    }
    const auto rest = body->subspan(ERROR_NUMBER_BYTES);
    return Reply{.errorNumber = static_cast<int>(getBigEndian<uint32_t>(body->data())),
                 .body = std::vector<uint8_t>(rest.begin(), rest.end())};
}

std::optional<int> decodeFault(std::span<const uint8_t> packet)
{
    const auto body = bodyOf(packet, Kind::FAULT);
    if (!body || body->size() != ERROR_NUMBER_BYTES) {
        return std::nullopt;
    }
    return static_cast<int>(getBigEndian<uint32_t>(body->data()));
}

bool isFinish(std::span<const uint8_t> packet)
{
    const auto body = bodyOf(packet, Kind::FINISH);
    return body && body->empty();
}

std::optional<Board> decodeBoard(std::span<const uint8_t> body)
{
    if (body.size() != BOARD_BYTES) {
        return std::nullopt;
    }
    return Board{.boardType = getBigEndian<uint32_t>(body.data()),
                 .deviceCode = getBigEndian<uint32_t>(body.data() + 4),
                 .canFdDevice = body[8] != 0};
}

std::optional<uint64_t> decodeOffset(std::span<const uint8_t> body)
{
    if (body.size() != sizeof(uint64_t)) {
        return std::nullopt;
    }
    return getBigEndian<uint64_t>(body.data());
}

std::optional<uint8_t> versionOf(std::span<const uint8_t> packet)
{
    if (packet.size() < PACKET_HEADER_BYTES || !std::equal(std::begin(MAGIC), std::end(MAGIC), packet.begin())) {
        return std::nullopt;
    }
    return packet[VERSION_OFFSET];
}

} // namespace wire
