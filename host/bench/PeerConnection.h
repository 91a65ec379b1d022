#pragma once

#include <logger/ByteQueue.h>
#include <logger/EpollLoop.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>

#include <functional>
#include <optional>

namespace vlogger {

/// One client of a TCP peer.
class PeerConnection : public EpollLoop::Handler
{
public:
    /// @param echoes   sends back what it receives
    /// @param onEnded  called at the end of the round in which the client has gone
    PeerConnection(EpollLoop& eventLoop, wire::FileDescriptor connection, bool echoes, bool silent,
                   std::function<void()> onEnded);

    virtual ~PeerConnection() = default;

    void setSilent(bool silent);
    bool hasEnded() const { return !fd; }

    void onReady(uint32_t events) override;
    void onFailure() noexcept override { close(); }

private:
    void receive();
    void send();
    void close();
    void watchWhatIsWanted();

    EpollLoop& loop;
    wire::FileDescriptor fd;
    const bool isEcho;
    bool isSilent;
    const std::function<void()> ended;
    ByteQueue unsent;
    std::optional<Watch> watch;
};

} // namespace vlogger
