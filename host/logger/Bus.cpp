#include <logger/Bus.h>

#include <logger/node/NodeMember.h>

#include <array>
#include <span>

namespace vlogger {

bool Bus::transmit(const wire::CanRecord& frame, std::optional<uint8_t> origin, Sender& sender)
{
    // First everybody is asked, then everybody is served: a frame that has to wait must not have reached anyone.
    if (!mayTransmit(origin, sender)) {
        return false;
    }
    ++taken;
    wire::CanRecord received = frame;
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
    for (Port& port : ports) {
        if (port.channel == origin) {
            ++port.sent;
            continue;
        }
        ++port.received;
        ++delivered;
        if (port.device == nullptr || !port.device->receives()) {
            continue;
        }
        received.channel = port.channel;
        const std::span record = std::span(bytes).first(wire::encode(received, bytes));
        for (const auto& stream : port.device->openStreams()) {
            stream->append(record);
        }
    }
    for (NodeMember* const node : nodes) {
        if (node != &sender) {
            ++delivered;
            node->receive(frame);
        }
    }
    return true;
}

bool Bus::mayTransmit(std::optional<uint8_t> origin, Sender& sender)
{
    for (const Port& port : ports) {
        if (port.channel == origin || port.device == nullptr) {
            continue;
        }
        for (const auto& stream : port.device->openStreams()) {
            if (stream->admit() == Admission::HOLD) {
                stream->wait(sender);
                return false;
            }
        }
    }
    return true;
}

} // namespace vlogger
