#include <logger/PacketBatch.h>

#include <cerrno>

namespace vlogger {

PacketBatch::PacketBatch()
{
    for (size_t i = 0; i < CAPACITY; ++i) {
        parts[i] = {.iov_base = buffers[i].data(), .iov_len = PACKET_BYTES};
        headers[i].msg_hdr.msg_iov = &parts[i];
        headers[i].msg_hdr.msg_iovlen = 1;
    }
}

int PacketBatch::receive(int fd)
{
    int received = 0;
    do {
        received = ::recvmmsg(fd, headers.data(), CAPACITY, MSG_DONTWAIT, nullptr);
    } while (received < 0 && errno == EINTR);
    count = received < 0 ? 0 : static_cast<size_t>(received);
    return received < 0 ? -1 : 0;
}

} // namespace vlogger
