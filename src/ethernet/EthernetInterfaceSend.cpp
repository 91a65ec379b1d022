#include <EthernetInterface.h>

#include <LogLine.h>

#include "ethernet/BrokenPipeGuard.h"
#include "ethernet/OpenSocket.h"
#include "ethernet/PayloadDump.h"

#include <sys/socket.h>

#include <cerrno>

using ethernet::OpenSocket;
using logline::Level;

namespace {

constexpr size_t LARGEST_PAYLOAD_BYTES = 65535;

} // namespace

int EthernetInterface::send(const uint8_t* data, size_t size)
{
    if (socketFd < 0) {
        logline::write(Level::WARNING, origin(), "send", "Interface isn't connected, try to connect...");
        if (!connect()) {
            return -1;
        }
    }
    if (size > LARGEST_PAYLOAD_BYTES) {
        logline::write(Level::ERROR, origin(), "send", "Can't send more than ", LARGEST_PAYLOAD_BYTES, " bytes.");
        return -2;
    }
    if (logLevel >= 2) {
        ethernet::dumpPayload("[INFO] ETH::send: ", data, size);
    }
    const int sentBytes = transmit(data, size);
    if (sentBytes != static_cast<int>(size)) {
        logline::write(Level::ERROR, origin(), "send", "Data loss, _dataSize=", size, "; dataSize=", sentBytes);
        reportState(3);
        return -3;
    }
    ++sentCount;
    if (logLevel >= 2) {
        logline::write(Level::DEBUG, origin(), "send", "sent bytes=", sentBytes);
    }
    return 0;
}

int EthernetInterface::send(MessageBase& msg)
{
    msg.createByteArray(msg.byteArray, true, false);
    return send(msg.byteArray.data(), msg.byteArray.size());
}

/// Hands the bytes to the socket in a single call.
/// @return what the system took, or a negative number
int EthernetInterface::transmit(const uint8_t* data, size_t size)
{
    const std::shared_ptr<OpenSocket> socket = currentSocket();
    const OpenSocket::Use use(socket.get());
    if (!use) {
        return -1; // closed by another thread since the caller looked
    }
    if (!socket->isStream) {
        return static_cast<int>(sendto(socket->fd, data, size, 0,
                                       reinterpret_cast<const sockaddr*>(&socket->server), sizeof socket->server));
    }
    ethernet::BrokenPipeGuard guard(socket->brokenPipeIsFatal);
    const ssize_t sent = ::send(socket->fd, data, size, 0);
    if (sent < 0 && errno == EPIPE) {
        guard.writeBrokePipe();
    }
    return static_cast<int>(sent);
}

std::shared_ptr<OpenSocket> EthernetInterface::currentSocket() const
{
    const MutexLock lock(stateMutex);
    return openSocket;
}
