#include <EthernetInterface.h>

#include <LogLine.h>

#include "ethernet/OpenSocket.h"
#include "ethernet/PayloadDump.h"

#include <vqutil/SocketAddress.h>

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

using ethernet::OpenSocket;
using logline::Level;

namespace {

constexpr size_t RECEIVE_BUFFER_BYTES = 65535;
constexpr timespec POLL_TIMEOUT = {0, 300'000'000};
constexpr useconds_t PAUSE_AFTER_LOSS_US = 1'000'000;
constexpr unsigned EMPTY_RECEPTIONS_UNTIL_END = 10;

/// What one pass of the receive thread has met.
enum class Event
{
    WAIT_FAILED,
    TIMEOUT,
    NOT_READY, ///< woken, but not by the socket
    CLOSED,    ///< the socket was closed meanwhile
    FAILED,
    EMPTY,
    DATA,
};

struct pass_t
{
    Event event;
    size_t size = 0;
    int error = 0;
};

/// Waits for the socket and receives once. The socket cannot be closed meanwhile; it is free again on return.
pass_t waitAndReceive(OpenSocket* socket, std::span<uint8_t> buffer, sockaddr_in& source)
{
    const OpenSocket::Use use(socket);
    // While disconnected the call waits out its time-out, with no descriptor.
    const int fd = use ? socket->fd : -1;
    fd_set ready;
    FD_ZERO(&ready);
    if (fd >= 0) {
        FD_SET(fd, &ready);
    }
    const int count = pselect(fd + 1, &ready, nullptr, nullptr, &POLL_TIMEOUT, nullptr);
    if (count < 0) {
        return {Event::WAIT_FAILED, 0, errno};
    }
    if (count == 0) {
        return {Event::TIMEOUT};
    }
    if (fd < 0 || !FD_ISSET(fd, &ready)) {
        return {Event::NOT_READY};
    }

    ssize_t received = 0;
    if (socket->isWithdrawn()) {
        return {Event::CLOSED};
    }
    if (socket->isStream) {
        received = recv(fd, buffer.data(), buffer.size(), 0);
    } else {
        socklen_t length = sizeof source;
        received = recvfrom(fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source), &length);
    }
    const int error = errno;
    if (received > 0) {
        return {Event::DATA, static_cast<size_t>(received)};
    }
    if (socket->isWithdrawn()) {
        // Not the server: the closing thread has shut the socket down to wake us.
        return {Event::CLOSED};
    }
    return {received == 0 ? Event::EMPTY : Event::FAILED, 0, error};
}

/// The address family is not compared.
bool isFrom(const sockaddr_in& server, const sockaddr_in& source)
{
    return source.sin_port == server.sin_port && source.sin_addr.s_addr == server.sin_addr.s_addr;
}

} // namespace

/// @return the socket, taken out for the caller to close, if there still is one
std::shared_ptr<OpenSocket> EthernetInterface::receiveUntilEnd()
{
    std::array<uint8_t, RECEIVE_BUFFER_BYTES> buffer; // not cleared: only received bytes are read
    std::shared_ptr<OpenSocket> socket;
    unsigned emptyReceptions = 0;
    while (rxThreadRunning) {
        if (socket == nullptr || socket->isWithdrawn()) {
            socket = currentSocket();
        }
        const pass_t pass = waitAndReceive(socket.get(), buffer, receiverAddr);
        switch (pass.event) {
        case Event::WAIT_FAILED:
            logline::write(Level::ERROR, origin(), "threadCode", "pselect() error: ", strerror(pass.error));
            continue;
        case Event::TIMEOUT:
            if (logLevel >= 3) {
                logline::write(Level::DEBUG, origin(), "threadCode", "pselect() timeout.");
            }
            continue;
        case Event::CLOSED:
            continue;
        case Event::NOT_READY:
            break;
        case Event::FAILED:
            logline::write(Level::ERROR, origin(), "threadCode", "receive error: ", strerror(pass.error));
            break;
        case Event::EMPTY:
            logline::write(Level::WARNING, origin(), "threadCode", "Lost connection - socket down!");
            usleep(PAUSE_AFTER_LOSS_US);
            calcBitRate();
            if (++emptyReceptions == EMPTY_RECEPTIONS_UNTIL_END) {
                std::shared_ptr<OpenSocket> taken;
                if (endAfterLoss(*socket, taken)) {
                    return taken;
                }
                emptyReceptions = 0; // They were those of a socket that is gone.
            }
            continue;
        case Event::DATA:
            if (!socket->isStream) {
                if (logLevel >= 2) {
                    logline::write(Level::DEBUG, origin(), "threadCode", "receiverAddr: ", receiverAddr);
                }
                if (!isFrom(socket->server, receiverAddr)) {
                    logline::write(Level::WARNING, origin(), "threadCode",
                                   "ignore UDP data from unexpected server");
                    emptyReceptions = 0;
                    continue;
                }
            }
            deliver(buffer.data(), pass.size);
            emptyReceptions = 0;
            break;
        }
        calcBitRate();
    }
    return takeSocket();
}

void EthernetInterface::deliver(const uint8_t* data, size_t size)
{
    if (logLevel >= 2) {
        logline::write(Level::DEBUG, origin(), "threadCode", "received bytes=", size);
        ethernet::dumpPayload("[INFO] ETH::recv: ", data, size);
    }
    ++receivedCount;
    // The next callback is looked up after each call, so that a callback may remove itself.
    for (auto next = callbacks.begin(); next != callbacks.end();) {
        InterfaceBaseCb* const callback = *next;
        callback->onDataReceived(data, size);
        next = callbacks.upper_bound(callback);
    }
}
