#include <logger/node/IsoTpNode.h>

#include <logger/node/NodeFrames.h>

#include <utility>

namespace vlogger {

IsoTpNode::IsoTpNode(IsoTpNodeOptions nodeOptions)
    : options(std::move(nodeOptions)), receiver(options), sender(options)
{
    constexpr size_t LONGEST_MESSAGE_BYTES = 4095;
    requireSendable(options.answers, LONGEST_MESSAGE_BYTES);
    requireWait("delay", options.delay);
    requireWait("waitInterval", options.waitInterval);
}

void IsoTpNode::start(Clock::Instant)
{
    receiver.reset();
    sender.reset();
}

void IsoTpNode::receive(const wire::CanRecord& frame, Clock::Instant now)
{
    if (options.fault == IsoTpFault::SILENT || !isClassicFrame(frame, options.requestId, options.extended)) {
        return;
    }
    const auto pdu = decodeIsoTp(frame.data(), options.format);
    if (!pdu) {
        return;
    }
    if (pdu->kind == IsoTpKind::FLOW_CONTROL) {
        sender.receive(*pdu, now);
        return;
    }
    if (const auto message = receiver.receive(*pdu, now)) {
        if (const Answer* const answer = findAnswer(options.answers, *message)) {
            sender.send(responseTo(*answer, *message), now + options.delay);
        }
    }
}

std::optional<Clock::Instant> IsoTpNode::due() const
{
    return earlierOf(receiver.due(), sender.due());
}

void IsoTpNode::proceed(Clock::Instant now, const Transmit& transmit)
{
    const auto put = [&](std::span<const uint8_t> data) {
        return transmit(classicFrame(options.responseId, options.extended, data));
    };
    // Flow control first: somebody waits for it.
    if (receiver.due() && *receiver.due() <= now) {
        receiver.proceed(now, put);
    } else if (sender.due() && *sender.due() <= now) {
        sender.proceed(now, put);
    }
}

} // namespace vlogger
