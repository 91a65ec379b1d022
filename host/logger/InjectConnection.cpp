#include <logger/InjectConnection.h>

#include <logger/Router.h>
#include <logger/VirtualLogger.h>
#include <wire/PacketSocket.h>
#include <wire/Protocol.h>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>

namespace vlogger {

namespace {

/// Batches that one tool may have delivered before the others get their turn.
constexpr int BATCHES_PER_TURN = 4;

} // namespace

InjectConnection::InjectConnection(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection,
                                   Router& frameRouter, Statistics& counters)
    : list(owner), fd(std::move(connection)), router(frameRouter), statistics(counters)
{
    watch.emplace(eventLoop, fd.get(), *this, EPOLLIN);
}

void InjectConnection::close()
{
    watch.reset();
    fd.reset();
    list.remove(*this);
}

void InjectConnection::onReady(uint32_t)
{
    for (int turn = 0; turn < BATCHES_PER_TURN; ++turn) {
        if (!receive() || !deliver()) {
            return;
        }
    }
}

void InjectConnection::resume()
{
    if (fd && deliver()) {
        watch->resume(EPOLLIN);
    }
}

/// @return true if there are packets to deliver
bool InjectConnection::receive()
{
    next = 0;
    // ECONNRESET: the tool has gone without reading its reply. It is said once, ahead of what the tool has sent.
    if (batch.receive(fd.get()) == 0 || (errno == ECONNRESET && batch.receive(fd.get()) == 0)) {
        return true;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
        close();
    }
    return false;
}

/// @return false if a frame has to wait, or the connection is closed now
bool InjectConnection::deliver()
{
    for (; next < batch.size(); ++next) {
        const std::span<const uint8_t> packet = batch.packet(next);
        if (packet.empty()) { // no packet of this protocol is: the tool has gone
            close();
            return false;
        }
        if (wire::isFinish(packet)) {
            wire::sendPacket(fd.get(), wire::encodeReply({}), -1, MSG_DONTWAIT);
            close();
            return false;
        }
        const auto frame = batch.isTruncated(next) ? std::nullopt : wire::decodeCanRecord(packet);
        if (!frame) {
            ++statistics.framesMalformed;
        } else if (!router.route(*frame, std::nullopt, *this)) {
            watch->suspend();
            return false;
        }
    }
    return true;
}

} // namespace vlogger
