#pragma once

#include <wire/FileDescriptor.h>

#include <cstddef>
#include <cstdint>
#include <span>

/// Packets on a SOCK_SEQPACKET connection, with or without a descriptor beside the bytes.
namespace wire {

struct ReceivedPacket
{
    size_t sizeBytes = 0;      ///< bytes put into the buffer; 0 also at the end of the connection
    bool truncated = false;    ///< the packet was longer than the buffer; the rest of it is gone
    FileDescriptor descriptor; ///< close-on-exec; empty if none came along
};

/// Sends one packet. Never raises SIGPIPE.
///
/// @param passed  descriptor to send along; -1: none. The caller keeps its own.
/// @param flags   for sendmsg(2), for example MSG_DONTWAIT
/// @return 0; -1 on failure with errno set by sendmsg(2)
int sendPacket(int fd, std::span<const uint8_t> packet, int passed = -1, int flags = 0);

/// Receives one packet. Of several descriptors beside it the first is kept; none is leaked.
///
/// @param flags  for recvmsg(2), for example MSG_DONTWAIT
/// @return 0; -1 on failure with errno set by recvmsg(2)
int receivePacket(int fd, std::span<uint8_t> buffer, ReceivedPacket& received, int flags = 0);

} // namespace wire
