#include <bench/EthernetPeer.h>

#include <bench/PeerConnection.h>
#include <logger/SystemError.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace vlogger {

EthernetPeer::EthernetPeer(EpollLoop& eventLoop, const config::Peer& configured)
    : loop(eventLoop), settings(configured)
{
    listen();
    watch.emplace(loop, fd.get(), *this, EPOLLIN);
}

EthernetPeer::~EthernetPeer() = default;

void EthernetPeer::listen()
{
    const bool isTcp = settings.transport == config::Transport::TCP;
    fd.reset(::socket(AF_INET, (isTcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(settings.port);
    ::inet_pton(AF_INET, settings.address.c_str(), &address.sin_addr);
    // A bench that is started again must not wait for the connections of the last one.
    const int reuse = 1;
    if (!fd || (isTcp && ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0) ||
        ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        (isTcp && ::listen(fd.get(), SOMAXCONN) != 0)) {
        throw systemError(errno, "peer " + settings.name + " cannot listen at " + settings.address + ":" +
                                     std::to_string(settings.port));
    }
}

void EthernetPeer::setSilent(bool silent)
{
    silenced = silent;
    for (const std::unique_ptr<PeerConnection>& connection : connections) {
        connection->setSilent(isSilent());
    }
}

void EthernetPeer::onReady(uint32_t)
{
    if (settings.transport == config::Transport::TCP) {
        acceptClient();
    } else {
        answerDatagram();
    }
}

void EthernetPeer::acceptClient()
{
    wire::FileDescriptor client(::accept4(fd.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client) {
        return; // it has gone again
    }
    connections.push_back(std::make_unique<PeerConnection>(
        loop, std::move(client), settings.behaviour == config::Behaviour::ECHO, isSilent(), [this] {
            std::erase_if(connections, [](const std::unique_ptr<PeerConnection>& one) { return one->hasEnded(); });
        }));
}

void EthernetPeer::answerDatagram()
{
    std::array<uint8_t, 65536> bytes;
    sockaddr_in sender{};
    socklen_t senderBytes = sizeof sender;
    const ssize_t count = ::recvfrom(fd.get(), bytes.data(), bytes.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&sender), &senderBytes);
    if (count >= 0 && settings.behaviour == config::Behaviour::ECHO && !isSilent()) {
        // Datagrams may get lost; this one does if there is no room.
        ::sendto(fd.get(), bytes.data(), static_cast<size_t>(count), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&sender), senderBytes);
    }
}

} // namespace vlogger
