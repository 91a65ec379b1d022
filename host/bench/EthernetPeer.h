#pragma once

#include <config/Configuration.h>
#include <logger/EpollLoop.h>
#include <logger/Watch.h>
#include <wire/FileDescriptor.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vlogger {

class PeerConnection;

/// A server on the Ethernet side: TCP with any number of clients, or UDP.
class EthernetPeer : public EpollLoop::Handler
{
public:
    /// @throws std::system_error if it cannot listen
    EthernetPeer(EpollLoop& eventLoop, const config::Peer& configured);
    virtual ~EthernetPeer();
    EthernetPeer(const EthernetPeer&) = delete;
    EthernetPeer& operator=(const EthernetPeer&) = delete;

    const std::string& name() const { return settings.name; }

    /// Neither reads nor sends any more, or does so as configured again. TCP clients are taken all the same.
    void setSilent(bool silent);

    void onReady(uint32_t events) override;
    void onFailure() noexcept override {}

private:
    void acceptClient();
    void answerDatagram();
    bool isSilent() const { return silenced || settings.behaviour == config::Behaviour::SILENT; }
    void listen();

    EpollLoop& loop;
    const config::Peer settings;
    bool silenced = false;
    wire::FileDescriptor fd;
    std::optional<Watch> watch;
    std::vector<std::unique_ptr<PeerConnection>> connections;
};

} // namespace vlogger
