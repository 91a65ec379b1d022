#include "vqpbus/BusConnection.h"

#include "endpoint/LoggerRequest.h"
#include "endpoint/LoggerSocket.h"

#include <wire/PacketSocket.h>

#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace vqhost {

BusConnection::BusConnection(const std::string& ownName) : buffer(wire::BUS_PACKET_MAX_BYTES)
{
    if (!wire::isBusName(ownName)) {
        throw std::system_error(EINVAL, std::generic_category(), ownName);
    }
    connection = ask({.kind = wire::Kind::BUS, .text = ownName}).connection;
    limitSending(connection.get(), ANSWER_LIMIT);
}

int BusConnection::send(std::span<const uint8_t> packet) const
{
    if (wire::sendPacket(connection.get(), packet) == 0) {
        return 0;
    }
    return errno == EAGAIN ? ETIMEDOUT : errno;
}

void BusConnection::end() const
{
    ::shutdown(connection.get(), SHUT_RDWR);
}

std::span<const uint8_t> BusConnection::receive()
{
    wire::ReceivedPacket received;
    do {
        if (wire::receivePacket(connection.get(), buffer, received) != 0) {
            return {};
        }
        // A packet that is longer than any of this version cannot be understood.
    } while (received.truncated);
    return std::span<const uint8_t>(buffer).first(received.sizeBytes);
}

} // namespace vqhost
