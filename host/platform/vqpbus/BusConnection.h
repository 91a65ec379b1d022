#pragma once

#include <wire/BusProtocol.h>
#include <wire/FileDescriptor.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vqhost {

/// One connection to the process bus, from its hello to its end.
///
/// Threads: send() and end() may be called from any thread, receive() from one at a time.
class BusConnection
{
public:
    /// Connects under a bus name.
    /// @throws std::system_error as vqhost::ask() says; EINVAL if it is no bus name
    explicit BusConnection(const std::string& ownName);

    /// Hands a MESSAGE packet to the bus. Waits a bounded time while the bus is busy.
    /// @return 0, or the error number
    int send(std::span<const uint8_t> packet) const;

    /// Ends the connection: nothing is sent any more, receive() returns what has arrived, then the end.
    void end() const;

    /// Waits for the next packet.
    /// @return the packet, valid until the next call; empty at the end of the connection
    std::span<const uint8_t> receive();

private:
    wire::FileDescriptor connection;
    std::vector<uint8_t> buffer;
};

} // namespace vqhost
