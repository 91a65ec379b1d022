#include <vqutil/writeAll.h>

#include "vqio/TransmitDescriptors.h"

#include <wire/Protocol.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace {

int writePlain(int fd, const char* rest, size_t size)
{
    while (size > 0) {
        const ssize_t written = write(fd, rest, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        if (written == 0) {
            // A descriptor that takes nothing and reports nothing would hold the caller here for ever.
            errno = EIO;
            return -1;
        }
        rest += written;
        size -= static_cast<size_t>(written);
    }
    return 0;
}

bool hasInput(int fd)
{
    // Looks without taking anything, so that a foreign descriptor loses neither data nor a pending error.
    pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&watched, 1, 0) > 0;
}

/// Takes what the virtual logger has sent on a transmit device.
/// @return error number of the fault; ENODEV if the device has gone; 0 if there is none
int takeFault(int fd)
{
    while (true) {
        std::array<uint8_t, wire::REQUEST_MAX_BYTES> packet;
        const ssize_t size = recv(fd, packet.data(), packet.size(), MSG_DONTWAIT);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            return errno == EAGAIN ? 0 : ENODEV;
        }
        if (size == 0) {
            return ENODEV;
        }
        if (const auto fault = wire::decodeFault(std::span(packet).first(static_cast<size_t>(size)))) {
            return *fault;
        }
        // A packet of a later version that this one need not understand.
    }
}

int writeToDevice(int fd, const char* data, size_t size)
{
    if (hasInput(fd)) {
        if (!vqhost::isTransmitDevice(fd)) {
            return writePlain(fd, data, size);
        }
        if (const int fault = takeFault(fd); fault != 0) {
            errno = fault;
            return -1;
        }
    }
    ssize_t sent = 0;
    do {
        sent = send(fd, data, size, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent == static_cast<ssize_t>(size)) {
        return 0;
    }
    if (!vqhost::isTransmitDevice(fd)) {
        // The number stands for something else by now, which has the right to its own error or signal.
        const size_t done = sent > 0 ? static_cast<size_t>(sent) : 0;
        return writePlain(fd, data + done, size - done);
    }
    if (sent >= 0) {
        errno = EIO; // a packet goes whole or not at all, so this does not happen
    } else if (errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN) {
        errno = ENODEV;
    }
    return -1;
}

} // namespace

int writeAll(int fd, const void* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const char* const bytes = static_cast<const char*>(data);
    return vqhost::mayBeTransmitDevice(fd) ? writeToDevice(fd, bytes, size) : writePlain(fd, bytes, size);
}
