#include <wire/PacketSocket.h>

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace wire {

namespace {

/// Room for one descriptor. The kernel closes what does not fit.
struct alignas(cmsghdr) ControlBuffer
{
    char bytes[CMSG_SPACE(sizeof(int))] = {};
};

FileDescriptor descriptorIn(msghdr& message)
{
    FileDescriptor found;
    for (cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr; control = CMSG_NXTHDR(&message, control)) {
        if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        // The padding of the buffer can hold a second descriptor; it is ours to close then.
        const size_t count = (control->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(control) + i * sizeof(int), sizeof fd);
            FileDescriptor received(fd);
            if (!found) {
                found = std::move(received);
            }
        }
    }
    return found;
}

} // namespace

int sendPacket(int fd, std::span<const uint8_t> packet, int passed, int flags)
{
    iovec part{.iov_base = const_cast<uint8_t*>(packet.data()), .iov_len = packet.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    ControlBuffer control;
    if (passed >= 0) {
        message.msg_control = control.bytes;
        message.msg_controllen = sizeof control.bytes;
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof passed);
        std::memcpy(CMSG_DATA(header), &passed, sizeof passed);
    }
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(fd, &message, flags | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -1 : 0; // a packet goes whole or not at all
}

int receivePacket(int fd, std::span<uint8_t> buffer, ReceivedPacket& received, int flags)
{
    iovec part{.iov_base = buffer.data(), .iov_len = buffer.size()};
    ControlBuffer control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    ssize_t size = 0;
    do {
        size = ::recvmsg(fd, &message, flags | MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    if (size < 0) {
        return -1;
    }
    received.sizeBytes = static_cast<size_t>(size);
    received.truncated = (message.msg_flags & MSG_TRUNC) != 0;
    received.descriptor = descriptorIn(message);
    return 0;
}

} // namespace wire
