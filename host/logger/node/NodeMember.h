#pragma once

#include <logger/Sender.h>
#include <logger/Timer.h>
#include <logger/node/Node.h>

#include <memory>

namespace vlogger {

class Router;

/// Connects a node with its bus and with the time of the loop.
class NodeMember : public Sender
{
public:
    NodeMember(EpollLoop& eventLoop, Router& frameRouter, std::shared_ptr<Node> connected);

    uint8_t channel() const { return node->channel(); }

    /// A frame of another member. Answers go out later in the round: the frame first reaches everybody.
    void receive(const wire::CanRecord& frame);

    void resume() override;

private:
    void run();
    bool transmit(const wire::CanRecord& frame);
    void waitUntilDue();

    EpollLoop& loop;
    Router& router;
    const std::shared_ptr<Node> node;
    Timer timer;
    bool isHeld = false; ///< a queue holds a frame back; resume() goes on
};

} // namespace vlogger
