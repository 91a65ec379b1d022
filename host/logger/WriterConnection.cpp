#include <logger/WriterConnection.h>

#include <logger/Router.h>
#include <logger/VirtualLogger.h>
#include <wire/PacketSocket.h>
#include <wire/Protocol.h>

#include <poll.h>
#include <sys/epoll.h>

#include <cerrno>

namespace vlogger {

namespace {

/// Batches that one client may have delivered before the others get their turn.
constexpr int BATCHES_PER_TURN = 4;

} // namespace

WriterConnection::WriterConnection(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection,
                                   TransmitDevice& transmitDevice, Router& frameRouter, Statistics& counters)
    : list(owner), fd(std::move(connection)), device(transmitDevice), router(frameRouter), statistics(counters)
{
    watch.emplace(eventLoop, fd.get(), *this, wantedEvents());
    device.opened(*this);
}

WriterConnection::~WriterConnection()
{
    if (fd) {
        device.closed(*this);
    }
}

void WriterConnection::failWrites(int errorNumber, unsigned count)
{
    if (count > 0) {
        faults.emplace_back(errorNumber, count);
        sendFaults();
    }
}

void WriterConnection::close()
{
    watch.reset();
    fd.reset();
    device.closed(*this);
    list.remove(*this);
}

void WriterConnection::onReady(uint32_t events)
{
    if ((events & EPOLLOUT) != 0) {
        sendFaults();
    }
    if (fd && (events & ~uint32_t{EPOLLOUT}) != 0) {
        receive();
    }
}

void WriterConnection::resume()
{
    if (fd && deliver() && finishBatch()) {
        watch->resume(wantedEvents());
    }
}

void WriterConnection::receive()
{
    for (int i = 0; i < BATCHES_PER_TURN; ++i) {
        next = 0;
        emptyPackets = 0;
        if (batch.receive(fd.get()) != 0) {
            if (errno == ECONNRESET) {
                continue; // the client has gone without reading its faults; what it has written is still there
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                close();
            }
            return;
        }
        if (!deliver() || !finishBatch() || !batch.isFull()) {
            return;
        }
    }
}

/// @return false if a frame has to wait; resume() goes on with it
bool WriterConnection::deliver()
{
    for (; next < batch.size(); ++next) {
        const std::span<const uint8_t> packet = batch.packet(next);
        if (packet.empty()) {
            ++emptyPackets;
            continue;
        }
        const auto frame = batch.isTruncated(next) ? std::nullopt : wire::decodeCanRecord(packet);
        if (!frame) {
            ++statistics.framesMalformed;
            continue;
        }
        if (!router.route(*frame, frame->channel, *this)) {
            watch->suspend();
            return false;
        }
    }
    return true;
}

/// Tells empty packets from the end of the connection, which look the same to recvmmsg(2). At the end every further
/// packet of a batch is empty, so a batch that is empty throughout says that nothing is left.
/// @return false if the connection is closed now
bool WriterConnection::finishBatch()
{
    if (emptyPackets == 0) {
        return true;
    }
    pollfd state{.fd = fd.get(), .events = POLLRDHUP, .revents = 0};
    if (::poll(&state, 1, 0) <= 0) {
        statistics.framesMalformed += emptyPackets;
    } else if (emptyPackets == batch.size()) {
        close();
        return false;
    }
    return true;
}

void WriterConnection::sendFaults()
{
    while (!faults.empty()) {
        auto& [errorNumber, count] = faults.front();
        if (wire::sendPacket(fd.get(), wire::encodeFault(errorNumber), -1, MSG_DONTWAIT) != 0) {
            break; // no room: the rest follows; the client has gone: the end is seen when reading
        }
        if (--count == 0) {
            faults.pop_front();
        }
    }
    watch->set(wantedEvents());
}

uint32_t WriterConnection::wantedEvents() const
{
    return EPOLLIN | EPOLLRDHUP | (faults.empty() ? 0U : uint32_t{EPOLLOUT});
}

} // namespace vlogger
