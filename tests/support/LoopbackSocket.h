#pragma once

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

/// What every socket of a test or benchmark needs.
namespace loopback {

/// @return the result of a system call
/// @throws std::system_error if it failed
inline int checked(int result, const char* step)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), step);
    }
    return result;
}

inline sockaddr_in addressOf(const char* ip, uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr(ip);
    return address;
}

/// @return true if the socket has the address now; port 0 gives it any free one
inline bool tryToBind(int fd, const char* ip, uint16_t port)
{
    const sockaddr_in address = addressOf(ip, port);
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// The port that a socket is bound to.
inline uint16_t portOf(int fd)
{
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    checked(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
    return ntohs(address.sin_port);
}

} // namespace loopback
