#include <logger/node/IsoTpPdu.h>

#include <algorithm>

namespace vlogger {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr uint8_t LONGEST_MS = 0x7F;
constexpr uint8_t FINE_CODE = 0xF0; ///< plus 1 to 9: so many times 100 µs
constexpr microseconds FINE_STEP{100};
constexpr int FINE_STEPS = 9;

/// Control information of a first and of a flow-control frame; the others have one byte.
constexpr size_t FIRST_CONTROL_BYTES = 2;
constexpr size_t FLOW_CONTROL_BYTES = 3;

size_t controlBytesOf(IsoTpKind kind)
{
    switch (kind) {
    case IsoTpKind::FIRST:
        return FIRST_CONTROL_BYTES;
    case IsoTpKind::FLOW_CONTROL:
        return FLOW_CONTROL_BYTES;
    case IsoTpKind::SINGLE:
    case IsoTpKind::CONSECUTIVE:
        break;
    }
    return 1;
}

} // namespace

size_t payloadBytesOf(IsoTpKind kind, const IsoTpFormat& format)
{
    return ISO_TP_FRAME_BYTES - (format.extendedAddressing ? 1 : 0) - controlBytesOf(kind);
}

std::optional<IsoTpPdu> decodeIsoTp(std::span<const uint8_t> data, const IsoTpFormat& format)
{
    if (data.size() > ISO_TP_FRAME_BYTES) {
        return std::nullopt;
    }
    if (format.extendedAddressing) {
        if (data.empty() || data.front() != format.ownAddress) {
            return std::nullopt;
        }
        data = data.subspan(1);
    }
    if (data.empty() || data.front() >> 4 > static_cast<uint8_t>(IsoTpKind::FLOW_CONTROL)) {
        return std::nullopt;
    }
    IsoTpPdu pdu{.kind = static_cast<IsoTpKind>(data.front() >> 4)};
    const size_t controlBytes = controlBytesOf(pdu.kind);
    if (data.size() < controlBytes) {
        return std::nullopt;
    }
    const uint8_t low = data.front() & 0x0F;
    pdu.payload = data.subspan(controlBytes);
    switch (pdu.kind) {
    case IsoTpKind::SINGLE:
        pdu.messageBytes = low;
        break;
    case IsoTpKind::FIRST:
        pdu.messageBytes = static_cast<size_t>(low) << 8 | data[1];
        break;
    case IsoTpKind::CONSECUTIVE:
        pdu.sequenceNumber = low;
        break;
    case IsoTpKind::FLOW_CONTROL:
        pdu.flow = low;
        pdu.blockSize = data[1];
        pdu.separationTime = data[2];
        break;
    }
    return pdu;
}

Bytes encodeIsoTp(std::initializer_list<uint8_t> control, std::span<const uint8_t> payload,
                  const IsoTpFormat& format)
{
    Bytes data;
    data.reserve(ISO_TP_FRAME_BYTES);
    if (format.extendedAddressing) {
        data.push_back(format.peerAddress);
    }
    data.insert(data.end(), control);
    data.insert(data.end(), payload.begin(), payload.end());
    if (!format.minimalDlc) {
        data.resize(ISO_TP_FRAME_BYTES);
    }
    return data;
}

microseconds separationTimeOf(uint8_t code)
{
    if (code > FINE_CODE && code <= FINE_CODE + FINE_STEPS) {
        return (code - FINE_CODE) * FINE_STEP;
    }
    return milliseconds(std::min(code, LONGEST_MS));
}

uint8_t separationCodeOf(microseconds time)
{
    if (time.count() > 0 && time <= FINE_STEPS * FINE_STEP) {
        return static_cast<uint8_t>(FINE_CODE + (time + FINE_STEP - microseconds(1)) / FINE_STEP);
    }
    const auto whole = std::chrono::ceil<milliseconds>(time).count();
    return static_cast<uint8_t>(std::clamp<int64_t>(whole, 0, LONGEST_MS));
}

} // namespace vlogger
