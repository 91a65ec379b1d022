#pragma once

#include <logger/EpollLoop.h>
#include <logger/Timer.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>

#include <functional>

namespace vlogger {

/// Accepts clients. One that comes when the process has no descriptor left is refused, and told so; the others go
/// on being served.
class Listener : public EpollLoop::Handler
{
public:
    /// @param onClient   gets each connection, non-blocking
    /// @param onRefused  called for each client that was refused
    Listener(EpollLoop& eventLoop, wire::FileDescriptor listeningSocket,
             std::function<void(wire::FileDescriptor)> onClient, std::function<void()> onRefused);
    virtual ~Listener() = default;

    void onReady(uint32_t events) override;
    void onFailure() noexcept override {}

private:
    wire::FileDescriptor accept();
    bool refuseOne(int errorNumber);
    void pause();

    EpollLoop& loop;
    wire::FileDescriptor fd;
    wire::FileDescriptor spare; ///< given up to accept, and so to answer, a client that there is no room for
    const std::function<void(wire::FileDescriptor)> clientCame;
    const std::function<void()> clientRefused;
    bool hasSaidShortage = false;
    Timer pauseOver;
    Watch watch;
};

} // namespace vlogger
