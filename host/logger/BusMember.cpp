#include <logger/BusMember.h>

#include <logger/Diagnostics.h>
#include <logger/ProcessBus.h>
#include <wire/PacketSocket.h>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace vlogger {

namespace {

/// Messages that one process may have delivered before the others get their turn.
constexpr int MESSAGES_PER_TURN = 64;

} // namespace

BusMember::BusMember(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection,
                     std::string busName, ProcessBus& processBus, const Options& options, Statistics& counters)
    : loop(eventLoop), list(owner), fd(std::move(connection)), ownName(std::move(busName)), bus(processBus),
      settings(options), statistics(counters), guard(eventLoop, *this, options.stallLimit)
{
    // Room for the longest packet, also where the system's default is small.
    const int bufferBytes = 2 * static_cast<int>(wire::BUS_PACKET_MAX_BYTES);
    ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
    watch.emplace(loop, fd.get(), *this, EPOLLIN);
    bus.join(*this);
}

BusMember::~BusMember()
{
    if (fd) {
        bus.leave(*this);
    }
}

bool BusMember::isFull() const
{
    return fd && !hungUp && (queue.size() >= settings.busQueueMessages || queuedBytes >= settings.busQueueBytes);
}

void BusMember::append(const wire::BusMessage& message)
{
    if (!fd || hungUp) {
        return;
    }
    if (isFull()) {
        drop();
        return;
    }
    tellDropped(); // where the messages are missing
    std::vector<uint8_t> packet;
    packet.reserve(wire::PACKET_HEADER_BYTES + 2 + message.source.size() + message.destination.size() +
                   message.record.size());
    wire::appendBusMessage(packet, message);
    enqueue(std::move(packet));
    ++statistics.busMessagesQueued;
    flushSoon();
}

void BusMember::drop()
{
    ++droppedUntold;
    ++statistics.busMessagesDropped;
}

void BusMember::enqueue(std::vector<uint8_t> packet)
{
    queuedBytes += packet.size();
    queue.push_back(std::move(packet));
}

void BusMember::tellDropped()
{
    if (droppedUntold > 0) {
        enqueue(wire::encodeBusDropped(std::exchange(droppedUntold, 0)));
    }
}

void BusMember::flushSoon()
{
    if (flushing || isBlocked) {
        return;
    }
    flushing = true;
    loop.defer([this, kept = weak_from_this()] {
        if (const auto self = kept.lock()) {
            flushing = false;
            flush();
        }
    });
}

void BusMember::flush()
{
    bool moved = false;
    isBlocked = false;
    while (fd && !hungUp && !isBlocked) {
        if (queue.empty()) {
            tellDropped(); // nothing follows that would tell it
        }
        if (queue.empty()) {
            break;
        }
        moved = sendFront() || moved;
    }
    if (fd && !hungUp) {
        watchAgain();
        if (moved) {
            guard.progressed();
        }
    }
}

/// @return true if the system has taken the packet
bool BusMember::sendFront()
{
    const std::vector<uint8_t>& packet = queue.front();
    const bool sent = wire::sendPacket(fd.get(), packet, -1, MSG_DONTWAIT) == 0;
    if (!sent && errno != EMSGSIZE) {
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            isBlocked = true;
        } else {
            stopSending();
        }
        return false;
    }
    queuedBytes -= packet.size();
    queue.pop_front();
    if (!sent) {
        drop(); // longer than the system can ever take
    }
    return true;
}

void BusMember::close()
{
    if (!fd) {
        return;
    }
    bus.leave(*this);
    watch.reset();
    fd.reset();
    guard.release();
    list.remove(*this);
}

void BusMember::onReady(uint32_t events)
{
    if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        stopSending();
    }
    if ((events & EPOLLOUT) != 0) {
        flush();
    }
    if (held.empty()) {
        receive();
    } else {
        watchAgain();
    }
}

/// The process takes nothing any more. What it has sent before still counts: that is read to its end.
void BusMember::stopSending()
{
    hungUp = true;
    queue.clear();
    queuedBytes = 0;
    guard.release();
}

void BusMember::receive()
{
    for (int i = 0; i < MESSAGES_PER_TURN; ++i) {
        if (!receiveOne()) {
            return;
        }
    }
}

/// @return true if there may be more
bool BusMember::receiveOne()
{
    const std::span<uint8_t> buffer = bus.packetBuffer();
    wire::ReceivedPacket received;
    if (wire::receivePacket(fd.get(), buffer, received, MSG_DONTWAIT) != 0) {
        // ECONNRESET: the process has gone without reading everything. It is said once, ahead of what it has sent.
        const bool goesOn = errno == ECONNRESET;
        if (!goesOn && errno != EAGAIN && errno != EWOULDBLOCK) {
            close();
        }
        return goesOn;
    }
    if (received.sizeBytes == 0) { // no packet of this protocol is empty: the process has gone
        close();
        return false;
    }
    const auto packet = buffer.first(received.sizeBytes);
    const auto message = received.truncated ? std::nullopt : wire::decodeBusMessage(packet);
    if (!message) {
        ++statistics.busMessagesMalformed;
        return true;
    }
    if (!bus.route(*message, *this)) {
        held.assign(packet.begin(), packet.end());
        watchAgain();
        return false;
    }
    return true;
}

void BusMember::resume()
{
    if (!fd || held.empty() || !bus.route(*wire::decodeBusMessage(held), *this)) {
        return;
    }
    held.clear();
    watchAgain();
}

/// Asks for what this connection can make use of now.
void BusMember::watchAgain()
{
    if (!fd) {
        return;
    }
    if (hungUp && !held.empty()) {
        watch->suspend(); // the end is reported without end
        return;
    }
    const uint32_t events = (held.empty() ? EPOLLIN : 0U) | (isBlocked ? EPOLLOUT : 0U);
    watch->resume(events);
    watch->set(events);
}

void BusMember::onStalled()
{
    diagnostics::warn("the process \"" + ownName + "\" has taken nothing from the process bus for " +
                      std::to_string(settings.stallLimit.count()) +
                      " ms: the newest messages for it are dropped until it reads again; return from its "
                      "callbacks sooner, or end the process");
}

} // namespace vlogger
