#include "NumberedFrames.h"

#include <sstream>

namespace {

constexpr std::array<cantype_t, 4> TYPES{CAN_STANDARD, CAN_EXTENDED, CAN_FD_STANDARD, CAN_FD_EXTENDED};
constexpr std::array<uint32_t, 4> IDS{0x123, 0x1ABCDE01, 0x7FE, 0x1FFFFFFE};
constexpr std::array<size_t, 4> PAYLOAD_BYTES{8, 4, 64, 12};

std::vector<uint8_t> payloadOf(uint32_t number)
{
    std::vector<uint8_t> payload(PAYLOAD_BYTES[number % 4], static_cast<uint8_t>(number * 37));
    for (size_t i = 0; i < 4; ++i) {
        payload[i] = static_cast<uint8_t>(number >> (24 - 8 * i));
    }
    return payload;
}

} // namespace

void NumberedSender::configure()
{
    for (size_t i = 0; i < interfaces.size(); ++i) {
        interfaces[i].configure({channel, IDS[i], TYPES[i], {}});
    }
}

CanInterface::Configuration NumberedSender::receiverConfiguration(uint8_t channel)
{
    return {channel, IDS[0], TYPES[0], {{IDS[1], TYPES[1]}, {IDS[2], TYPES[2]}, {IDS[3], TYPES[3]}}};
}

int NumberedSender::sendNext()
{
    const std::vector<uint8_t> payload = payloadOf(number);
    return interfaces[number++ % 4].send(payload.data(), payload.size());
}

NumberedReceiver::NumberedReceiver(uint8_t receivedChannel)
    : configuration(NumberedSender::receiverConfiguration(receivedChannel)), channel(receivedChannel)
{
    can.callbacks.insert(this);
}

void NumberedReceiver::onDataReceived(const uint8_t* data, size_t size)
{
    const ReceivedFrame frame = ReceivedFrame::of(data, size);
    const std::string wrong = check(frame);
    if (!wrong.empty()) {
        const std::lock_guard lock(mutex);
        if (problem.empty()) {
            problem = wrong;
        }
        changed.notify_all();
        return;
    }
    if (next == 0) {
        firstTimestamp = frame.timestampUs;
    }
    lastTimestamp = frame.timestampUs;
    if (++next == wanted) {
        const std::lock_guard lock(mutex);
        changed.notify_all();
    }
}

std::string NumberedReceiver::awaitFrames(uint32_t count, std::chrono::seconds limit)
{
    wanted = count;
    std::unique_lock lock(mutex);
    if (!changed.wait_for(lock, limit, [&] { return next >= count || !problem.empty(); })) {
        return "only " + std::to_string(next) + " frames on channel " + std::to_string(channel);
    }
    return problem;
}

std::string NumberedReceiver::check(const ReceivedFrame& frame) const
{
    const uint32_t number = next;
    const size_t kind = number % 4;
    std::ostringstream text;
    if (frame.payload != payloadOf(number)) {
        text << "payload; ";
    }
    if (frame.channel != channel) {
        text << "channel " << unsigned{frame.channel} << "; ";
    }
    if (frame.type != TYPES[kind] || frame.isExtended != isExtendedType(TYPES[kind]) || frame.id != IDS[kind]) {
        text << "id " << std::hex << frame.id << std::dec << " type " << unsigned{frame.type} << "; ";
    }
    if (frame.timestampUs < lastTimestamp) {
        text << "time went back from " << lastTimestamp << " to " << frame.timestampUs << "; ";
    }
    const std::string wrong = text.str();
    return wrong.empty()
               ? wrong
               : "channel " + std::to_string(channel) + ", frame " + std::to_string(number) + ": " + wrong;
}
