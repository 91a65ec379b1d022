#pragma once

#include <logger/Completion.h>
#include <logger/Router.h>
#include <logger/Sender.h>

namespace vlogger {

/// A frame that a thread outside the loop sends as a node of a bus, and waits for.
class NodeFrame : public Sender
{
public:
    NodeFrame(const wire::CanRecord& record, Router& frameRouter) : frame(record), router(frameRouter) {}

    /// Offers the frame to its bus; the waiting thread goes on once it is there. Loop's thread.
    void resume() override
    {
        if (router.route(frame, std::nullopt, *this)) {
            sent.finish();
        }
    }

    /// Lets the waiting thread go, although nobody got the frame. Loop's thread.
    void giveUp() { sent.finish(); }

    /// Waits until the frame is sent or given up. The thread that sends.
    void wait() { sent.wait(); }

private:
    const wire::CanRecord frame;
    Router& router;
    Completion sent;
};

} // namespace vlogger
