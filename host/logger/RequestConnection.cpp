#include <logger/RequestConnection.h>

#include <wire/PacketSocket.h>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace vlogger {

RequestConnection::RequestConnection(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection,
                                     Serve onRequest, Refuse onGarbage)
    : list(owner), fd(std::move(connection)), serve(std::move(onRequest)), refuse(std::move(onGarbage))
{
    watch.emplace(eventLoop, fd.get(), *this, EPOLLIN);
}

void RequestConnection::close()
{
    watch.reset();
    fd.reset();
    list.remove(*this);
}

void RequestConnection::onReady(uint32_t)
{
    std::array<uint8_t, wire::REQUEST_MAX_BYTES> buffer;
    wire::ReceivedPacket received;
    if (wire::receivePacket(fd.get(), buffer, received, MSG_DONTWAIT) != 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            close();
        }
        return;
    }
    if (received.sizeBytes == 0) { // the client has gone, or has sent nothing at all
        close();
        return;
    }
    watch.reset();
    list.remove(*this);
    const std::span packet = std::span(buffer).first(received.sizeBytes);
    const auto request = received.truncated ? std::nullopt : wire::decodeRequest(packet);
    if (request) {
        serve(std::move(fd), *request);
    } else {
        refuse(std::move(fd), wire::versionOf(packet) == wire::PROTOCOL_VERSION ? EINVAL : EPROTO);
    }
}

} // namespace vlogger
