#pragma once

#include <logger/EpollLoop.h>
#include <logger/Sender.h>

namespace vlogger {

/// A client's connection in one of its roles.
class Connection : public EpollLoop::Handler, public Sender
{
public:
    /// Ends the connection; it is destroyed at the end of the round.
    virtual void close() = 0;

    void onFailure() noexcept override { close(); }
};

} // namespace vlogger
