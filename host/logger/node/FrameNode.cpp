#include <logger/node/FrameNode.h>

#include <logger/node/NodeFrames.h>

#include <utility>

namespace vlogger {

namespace {

constexpr size_t WAITING_MAX = 64;
constexpr size_t CLASSIC_BYTES = 8;

} // namespace

FrameNode::FrameNode(FrameNodeOptions nodeOptions) : options(std::move(nodeOptions))
{
    requireSendable(options.answers, CLASSIC_BYTES);
    requireWait("delay", options.delay);
}

void FrameNode::start(Clock::Instant)
{
    waiting.clear();
}

void FrameNode::receive(const wire::CanRecord& frame, Clock::Instant now)
{
    if (!isClassicFrame(frame, options.requestId, options.extended) || waiting.size() == WAITING_MAX) {
        return;
    }
    if (const Answer* const answer = findAnswer(options.answers, frame.data())) {
        waiting.push_back(
            {.due = now + options.delay,
             .frame = classicFrame(options.responseId, options.extended, responseTo(*answer, frame.data()))});
    }
}

std::optional<Clock::Instant> FrameNode::due() const
{
    return waiting.empty() ? std::nullopt : std::optional(waiting.front().due);
}

void FrameNode::proceed(Clock::Instant, const Transmit& transmit)
{
    if (transmit(waiting.front().frame)) {
        waiting.pop_front();
    }
}

} // namespace vlogger
