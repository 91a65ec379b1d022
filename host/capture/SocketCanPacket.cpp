#include <capture/SocketCanPacket.h>

#include <algorithm>

namespace capture {

namespace {

constexpr uint32_t EXTENDED_FLAG = 0x80000000;
constexpr uint32_t REMOTE_FLAG = 0x40000000;
constexpr uint32_t ERROR_FLAG = 0x20000000;
constexpr uint32_t STANDARD_MASK = 0x7FF;
constexpr uint32_t EXTENDED_MASK = 0x1FFFFFFF;
constexpr uint8_t FD_FLAGS_MASK = 0x0F;
constexpr size_t LENGTH_OFFSET = 4;
constexpr size_t FLAGS_OFFSET = 5;
constexpr size_t LENGTH_CODE_OFFSET = 7;
constexpr uint8_t CLASSIC_MAX_BYTES = 8;
constexpr uint8_t LENGTH_CODE_MAX = 15;
/// Set in the length byte's place by frames of the third generation, which are not read here.
constexpr uint8_t XL_FLAG = 0x80;

uint32_t identifierWord(const CandumpFrame& frame)
{
    switch (frame.kind) {
    case FrameKind::ERROR:
        return frame.id | ERROR_FLAG;
    case FrameKind::REMOTE:
        return frame.id | REMOTE_FLAG | (frame.isExtended ? EXTENDED_FLAG : 0);
    case FrameKind::DATA:
        break;
    }
    return frame.id | (frame.isExtended ? EXTENDED_FLAG : 0);
}

} // namespace

size_t encodeSocketCan(const CandumpFrame& frame, std::span<uint8_t, SOCKETCAN_MAX_BYTES> out)
{
    const uint32_t word = identifierWord(frame);
    const std::span<const uint8_t> data = frame.data();
    out[0] = static_cast<uint8_t>(word >> 24);
    out[1] = static_cast<uint8_t>(word >> 16);
    out[2] = static_cast<uint8_t>(word >> 8);
    out[3] = static_cast<uint8_t>(word);
    out[LENGTH_OFFSET] = frame.lengthBytes;
    out[FLAGS_OFFSET] = frame.isFd ? static_cast<uint8_t>(frame.fdFlags | FD_FORMAT_FLAG) : uint8_t{0};
    out[6] = 0;
    out[LENGTH_CODE_OFFSET] = frame.lengthCode;
    std::copy(data.begin(), data.end(), out.begin() + SOCKETCAN_HEADER_BYTES);
    return SOCKETCAN_HEADER_BYTES + data.size();
}

std::string decodeSocketCan(std::span<const uint8_t> packet, CandumpFrame& frame)
{
    if (packet.size() < SOCKETCAN_HEADER_BYTES) {
        return "the packet is shorter than the header of a CAN frame";
    }
    if ((packet[LENGTH_OFFSET] & XL_FLAG) != 0) {
        return "the packet is a CAN XL frame";
    }
    const uint32_t word =
        uint32_t{packet[0]} << 24 | uint32_t{packet[1]} << 16 | uint32_t{packet[2]} << 8 | packet[3];
    const uint8_t length = packet[LENGTH_OFFSET];
    const uint8_t flags = packet[FLAGS_OFFSET];
    const bool isError = (word & ERROR_FLAG) != 0;
    frame.kind = isError ? FrameKind::ERROR : (word & REMOTE_FLAG) != 0 ? FrameKind::REMOTE : FrameKind::DATA;
    frame.isExtended = isError || (word & EXTENDED_FLAG) != 0;
    frame.id = word & (frame.isExtended ? EXTENDED_MASK : STANDARD_MASK);
    frame.isFd = frame.kind == FrameKind::DATA && ((flags & FD_FORMAT_FLAG) != 0 || length > CLASSIC_MAX_BYTES ||
                                                   packet.size() == SOCKETCAN_MAX_BYTES);
    frame.fdFlags = frame.isFd ? flags & FD_FLAGS_MASK & static_cast<uint8_t>(~FD_FORMAT_FLAG) : uint8_t{0};
    frame.payload.fill(0);
    frame.lengthBytes = length;
    const uint8_t code = packet[LENGTH_CODE_OFFSET];
    const bool isFullClassic = !frame.isFd && length == CLASSIC_MAX_BYTES;
    frame.lengthCode = isFullClassic && code > CLASSIC_MAX_BYTES && code <= LENGTH_CODE_MAX ? code : uint8_t{0};
    if (length > (frame.isFd ? frame.payload.size() : CLASSIC_MAX_BYTES)) {
        return "the payload is longer than its kind of frame allows";
    }
    const std::span<const uint8_t> payload = packet.subspan(SOCKETCAN_HEADER_BYTES);
    if (payload.size() < frame.data().size()) {
        return "the packet ends before its payload does";
    }
    std::copy_n(payload.begin(), frame.data().size(), frame.payload.begin());
    return {};
}

} // namespace capture
