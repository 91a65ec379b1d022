#include <logger/node/NodeMember.h>

#include <logger/EpollLoop.h>
#include <logger/Router.h>

#include <utility>

namespace vlogger {

namespace {

/// Steps that one node may take before the others get their turn.
constexpr int STEPS_PER_TURN = 64;

} // namespace

NodeMember::NodeMember(EpollLoop& eventLoop, Router& frameRouter, std::shared_ptr<Node> connected)
    : loop(eventLoop), router(frameRouter), node(std::move(connected)), timer(eventLoop, [this] { run(); })
{
    node->start(loop.now());
    waitUntilDue();
}

void NodeMember::receive(const wire::CanRecord& frame)
{
    node->receive(frame, loop.now());
    waitUntilDue();
}

void NodeMember::resume()
{
    isHeld = false;
    run();
}

void NodeMember::run()
{
    const Node::Transmit put = [this](const wire::CanRecord& frame) { return transmit(frame); };
    for (int step = 0; step < STEPS_PER_TURN && !isHeld; ++step) {
        const auto due = node->due();
        const Clock::Instant now = loop.now();
        if (!due || *due > now) {
            break;
        }
        node->proceed(now, put);
    }
    waitUntilDue();
}

bool NodeMember::transmit(const wire::CanRecord& frame)
{
    wire::CanRecord own = frame;
    own.channel = channel();
    isHeld = !router.route(own, std::nullopt, *this);
    return !isHeld;
}

void NodeMember::waitUntilDue()
{
    const auto due = node->due();
    if (due && !isHeld) {
        timer.start(*due);
    } else {
        timer.stop();
    }
}

} // namespace vlogger
