#include <support/ScriptedServer.h>

#include <support/LoopbackSocket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using loopback::addressOf;
using loopback::checked;
using loopback::portOf;
using loopback::tryToBind;

void wake(int event)
{
    const uint64_t one = 1;
    checked(static_cast<int>(write(event, &one, sizeof one)), "write");
}

// recvmsg and sendmsg, which the library does not use: a test may make those fail that it does.
ssize_t recvmsgInto(int fd, uint8_t* data, size_t size)
{
    iovec part = {data, size};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return recvmsg(fd, &message, 0);
}

ssize_t sendmsgFrom(int fd, const uint8_t* data, size_t size, const sockaddr_in* to = nullptr)
{
    sockaddr_in target = to != nullptr ? *to : sockaddr_in{};
    iovec part = {const_cast<uint8_t*>(data), size};
    msghdr message = {};
    message.msg_name = to != nullptr ? &target : nullptr;
    message.msg_namelen = to != nullptr ? sizeof target : 0;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return sendmsg(fd, &message, MSG_NOSIGNAL);
}

void setResetOnClose(int fd)
{
    const linger hard = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

} // namespace

ScriptedTcpServer::ScriptedTcpServer(Script playedScript, uint16_t wantedPort) : script(playedScript)
{
    listener = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    const int on = 1;
    checked(setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
    if (!tryToBind(listener, IP, wantedPort)) {
        throw std::system_error(errno, std::generic_category(), "bind");
    }
    checked(listen(listener, 16), "listen");
    listeningPort = portOf(listener);
    wakeUp = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread = std::thread([this] { serve(); });
}

ScriptedTcpServer::~ScriptedTcpServer()
{
    stopping = true;
    wake(wakeUp);
    thread.join();
    for (const int fd : clients) {
        ::close(fd);
    }
    ::close(listener);
    ::close(wakeUp);
}

void ScriptedTcpServer::serve()
{
    for (;;) {
        std::vector<pollfd> watched = {{wakeUp, POLLIN, 0}, {listener, POLLIN, 0}};
        if (script != Script::STALL) {
            const std::lock_guard lock(mutex);
            for (const int fd : clients) {
                watched.push_back({fd, POLLIN, 0});
            }
        }
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents != 0) {
            uint64_t ignored = 0;
            checked(static_cast<int>(read(wakeUp, &ignored, sizeof ignored)), "read");
            if (stopping) {
                return;
            }
            closeLatestClient();
            continue;
        }
        if (watched[1].revents != 0) {
            accept();
        }
        for (size_t index = 2; index < watched.size(); ++index) {
            const std::lock_guard lock(mutex);
            const auto client = std::find(clients.begin(), clients.end(), watched[index].fd);
            if ((watched[index].revents & (POLLIN | POLLHUP | POLLERR)) == 0 || client == clients.end()) {
                continue;
            }
            if (!serveClient(*client)) {
                ::close(*client);
                clients.erase(client);
                closed.add(1);
            }
        }
    }
}

void ScriptedTcpServer::accept()
{
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    {
        const std::lock_guard lock(mutex);
        if (script == Script::ACCEPT_CLOSE) {
            ::close(fd);
        } else {
            clients.push_back(fd);
        }
    }
    accepted.add(static_cast<int>(accepted.count()) + 1);
}

/// @return false if the connection is over
bool ScriptedTcpServer::serveClient(int fd)
{
    std::array<uint8_t, 65536> buffer;
    const ssize_t size = recvmsgInto(fd, buffer.data(), buffer.size());
    if (size <= 0) {
        return false;
    }
    received.add(Bytes(buffer.begin(), buffer.begin() + size));
    if (script == Script::RESET) {
        setResetOnClose(fd);
        return false;
    }
    if (script == Script::ECHO) {
        for (ssize_t done = 0; done < size;) {
            const ssize_t now = sendmsgFrom(fd, buffer.data() + done, static_cast<size_t>(size - done));
            if (now <= 0) {
                return false;
            }
            done += now;
        }
    }
    return true;
}

void ScriptedTcpServer::send(const Bytes& bytes)
{
    const std::lock_guard lock(mutex);
    if (clients.empty() ||
        sendmsgFrom(clients.back(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the server has no client to send to");
    }
}

void ScriptedTcpServer::closeClient()
{
    ending = Ending::IN_ORDER;
    wake(wakeUp);
}

void ScriptedTcpServer::resetClient()
{
    ending = Ending::RESET;
    wake(wakeUp);
}

/// Runs on the server's thread: a connection that another thread closed while this one watches it would stay open.
void ScriptedTcpServer::closeLatestClient()
{
    const std::lock_guard lock(mutex);
    if (clients.empty()) {
        return;
    }
    if (ending == Ending::RESET) {
        setResetOnClose(clients.back());
    }
    ::close(clients.back());
    clients.pop_back();
}

bool ScriptedTcpServer::awaitBytes(size_t wanted) const
{
    return received.waitUntil([wanted](const std::vector<Bytes>& all) {
        return std::accumulate(all.begin(), all.end(), size_t{0},
                               [](size_t sum, const Bytes& bytes) { return sum + bytes.size(); }) >= wanted;
    });
}

RefusingPort::RefusingPort() : fd(checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"))
{
    if (!tryToBind(fd, ScriptedTcpServer::IP, 0)) {
        throw std::system_error(errno, std::generic_category(), "bind");
    }
    boundPort = portOf(fd);
}

RefusingPort::~RefusingPort()
{
    ::close(fd);
}

ScriptedUdpServer::ScriptedUdpServer(Script playedScript) : script(playedScript)
{
    const auto openDatagrams = [] { return checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"); };
    // One port number serves both ends, so it has to be free on both addresses, and on the stranger's.
    for (int attempt = 0; boundPort == 0; ++attempt) {
        fd = openDatagrams();
        otherAddressFd = openDatagrams();
        const int client = openDatagrams();
        if (tryToBind(fd, IP, 0) && tryToBind(client, CLIENT_IP, portOf(fd)) &&
            tryToBind(otherAddressFd, "127.0.0.3", portOf(fd))) {
            boundPort = portOf(fd);
        } else {
            ::close(fd);
            ::close(otherAddressFd);
        }
        ::close(client);
        if (attempt == 100) {
            throw std::runtime_error("no port number is free on all addresses");
        }
    }
    otherPortFd = openDatagrams();
    if (!tryToBind(otherPortFd, IP, 0)) {
        throw std::system_error(errno, std::generic_category(), "bind");
    }
    strangerPort = portOf(otherPortFd);
    stop = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread = std::thread([this] { serve(); });
}

ScriptedUdpServer::~ScriptedUdpServer()
{
    wake(stop);
    thread.join();
    for (const int descriptor : {fd, otherPortFd, otherAddressFd, stop}) {
        ::close(descriptor);
    }
}

void ScriptedUdpServer::serve()
{
    std::array<uint8_t, 65536> buffer;
    for (;;) {
        pollfd watched[] = {{stop, POLLIN, 0}, {fd, POLLIN, 0}};
        poll(watched, 2, -1);
        if (watched[0].revents != 0) {
            return;
        }
        const ssize_t size = recvmsgInto(fd, buffer.data(), buffer.size());
        if (size < 0) {
            continue;
        }
        const Bytes bytes(buffer.begin(), buffer.begin() + size);
        received.add(bytes);
        switch (script) {
        case Script::ECHO:
            send(bytes);
            break;
        case Script::WRONG_PORT:
            sendFromOtherPort(bytes);
            break;
        case Script::EMPTY_ANSWERS:
            send({});
            break;
        default:
            break;
        }
    }
}

void ScriptedUdpServer::send(const Bytes& bytes) const
{
    sendThrough(fd, bytes);
}

void ScriptedUdpServer::sendFromOtherPort(const Bytes& bytes) const
{
    sendThrough(otherPortFd, bytes);
}

void ScriptedUdpServer::sendFromOtherAddress(const Bytes& bytes) const
{
    sendThrough(otherAddressFd, bytes);
}

void ScriptedUdpServer::sendThrough(int from, const Bytes& bytes) const
{
    const sockaddr_in client = addressOf(CLIENT_IP, boundPort);
    checked(static_cast<int>(sendmsgFrom(from, bytes.data(), bytes.size(), &client)), "sendmsg");
}
