// The other side of the example: sends back what it receives, to one client at a time. Writes the number of its port
// to standard output and ends when standard input does.
//
// usage: ethernet_server tcp|udp PORT

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr in_addr_t TCP_IP = INADDR_LOOPBACK; // 127.0.0.1
// One port number serves both ends of the datagrams, so on one machine they need two addresses.
constexpr in_addr_t UDP_IP = INADDR_LOOPBACK + 1;
constexpr in_addr_t UDP_CLIENT_IP = INADDR_LOOPBACK;

constexpr int ATTEMPTS = 100;
constexpr std::chrono::milliseconds BETWEEN_ATTEMPTS{100};

bool tryToBind(int fd, in_addr_t ip, uint16_t port)
{
    const sockaddr_in address = {AF_INET, htons(port), {htonl(ip)}, {}};
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

uint16_t portOf(int fd)
{
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

/// @return the bound socket, or -1
int tryToOpen(bool isTcp, uint16_t port)
{
    const int fd = socket(AF_INET, isTcp ? SOCK_STREAM : SOCK_DGRAM, 0);
    const int on = 1;
    if (isTcp) {
        // Connections of a predecessor on this port may still be closing.
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    bool isBound = tryToBind(fd, isTcp ? TCP_IP : UDP_IP, port);
    if (isBound && !isTcp && port == 0) {
        const int client = socket(AF_INET, SOCK_DGRAM, 0);
        isBound = tryToBind(client, UDP_CLIENT_IP, portOf(fd));
        close(client);
    }
    if (isBound) {
        return fd;
    }
    close(fd);
    return -1;
}

/// Waits while somebody else has the port.
int openSocket(bool isTcp, uint16_t port)
{
    for (int attempt = 0; attempt < ATTEMPTS; ++attempt) {
        const int fd = tryToOpen(isTcp, port);
        if (fd >= 0) {
            return fd;
        }
        std::this_thread::sleep_for(BETWEEN_ATTEMPTS);
    }
    throw std::system_error(EADDRINUSE, std::generic_category(), "port " + std::to_string(port));
}

/// Waits until something can be read from the socket.
/// @return false if standard input has ended
bool awaitInput(int fd)
{
    pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {fd, POLLIN, 0}};
    while (poll(watched, 2, -1) < 0 && errno == EINTR) {
    }
    return watched[0].revents == 0;
}

void serveDatagrams(int fd)
{
    std::array<char, 65536> buffer;
    while (awaitInput(fd)) {
        sockaddr_in client = {};
        socklen_t length = sizeof client;
        auto* const address = reinterpret_cast<sockaddr*>(&client);
        const ssize_t size = recvfrom(fd, buffer.data(), buffer.size(), 0, address, &length);
        if (size >= 0) {
            sendto(fd, buffer.data(), static_cast<size_t>(size), 0, address, length);
        }
    }
}

/// @return false if standard input has ended
bool serveClient(int fd)
{
    std::array<char, 65536> buffer;
    for (;;) {
        if (!awaitInput(fd)) {
            return false;
        }
        const ssize_t size = recv(fd, buffer.data(), buffer.size(), 0);
        if (size <= 0) {
            return true;
        }
        for (ssize_t done = 0; done < size;) {
            const ssize_t now = send(fd, buffer.data() + done, static_cast<size_t>(size - done), MSG_NOSIGNAL);
            if (now <= 0) {
                return true;
            }
            done += now;
        }
    }
}

void serveConnections(int listener)
{
    bool isWanted = true;
    while (isWanted && awaitInput(listener)) {
        const int client = accept(listener, nullptr, nullptr);
        if (client >= 0) {
            isWanted = serveClient(client);
            close(client);
        }
    }
}

} // namespace

int main(int count, char** arguments)
try {
    const std::string transport = count == 3 ? arguments[1] : "";
    if (transport != "tcp" && transport != "udp") {
        std::cerr << "usage: ethernet_server tcp|udp PORT\n";
        return 2;
    }
    const bool isTcp = transport == "tcp";
    const int fd = openSocket(isTcp, static_cast<uint16_t>(std::stoul(arguments[2])));
    if (isTcp && listen(fd, 1) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
    std::cout << portOf(fd) << std::endl;
    isTcp ? serveConnections(fd) : serveDatagrams(fd);
} catch (const std::exception& error) {
    std::cerr << "ethernet_server: " << error.what() << '\n';
    return 1;
}
