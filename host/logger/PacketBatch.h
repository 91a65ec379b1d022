#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vlogger {

/// Several packets of a connection, received with one system call.
class PacketBatch
{
public:
    static constexpr size_t CAPACITY = 64;
    /// Longest packet that is kept whole; a CAN frame record has at most 87 bytes.
    static constexpr size_t PACKET_BYTES = 128;

    PacketBatch();
    PacketBatch(const PacketBatch&) = delete;
    PacketBatch& operator=(const PacketBatch&) = delete;

    /// Replaces the packets by those that wait now. Does not block. At the end of a connection the system fills the
    /// batch with empty packets.
    /// @return 0; -1 on failure, with errno set by recvmmsg(2): EAGAIN if no packet waits. The batch is empty then.
    int receive(int fd);

    size_t size() const { return count; }
    bool isFull() const { return count == CAPACITY; }
    std::span<const uint8_t> packet(size_t index) const
    {
        return std::span(buffers[index]).first(headers[index].msg_len);
    }
    /// True if the packet was longer than PACKET_BYTES.
    bool isTruncated(size_t index) const { return (headers[index].msg_hdr.msg_flags & MSG_TRUNC) != 0; }

private:
    size_t count = 0;
    std::array<std::array<uint8_t, PACKET_BYTES>, CAPACITY> buffers;
    std::array<iovec, CAPACITY> parts;
    std::array<mmsghdr, CAPACITY> headers{};
};

} // namespace vlogger
