#include <EthernetInterface.h>

#include <LogLine.h>

#include "ethernet/BrokenPipeGuard.h"
#include "ethernet/OpenSocket.h"

#include <vqutil/SocketAddress.h>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

using ethernet::OpenSocket;
using logline::Level;

namespace {

sockaddr_in socketAddress(const std::string& ip, uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr(ip.c_str());
    return address;
}

const sockaddr* generic(const sockaddr_in& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

/// Runs an action at the end of a scope, however it is left.
template <typename Action>
class AtScopeEnd
{
public:
    explicit AtScopeEnd(Action whatToRun) : action(whatToRun) {}
    ~AtScopeEnd() { action(); }
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;

private:
    Action action;
};

/// A socket that select(2) can wait on; -1 with errno otherwise.
int openSelectableSocket(int type)
{
    const int fd = socket(AF_INET, type, 0);
    if (fd < static_cast<int>(FD_SETSIZE)) {
        return fd;
    }
    close(fd);
    errno = EMFILE;
    return -1;
}

} // namespace

bool EthernetInterface::connect()
{
    // The conflict first: it is the reason why the interface counts as not configured.
    if (ipConflict) {
        logline::write(Level::ERROR, origin(), "connect", "Can't connect, IP conflict.");
        return false;
    }
    if (!configured) {
        logline::write(Level::ERROR, origin(), "connect", "Can't connect, interface isn't configured.");
        return false;
    }
    if (socketFd < 0) {
        // A receive thread that has ended makes its last callback yet, and that may connect.
        joinEndedThreads();
    }
    const Configuration target = currentConfiguration();
    if (!beginOpening(target)) {
        logline::write(Level::INFO, origin(), "connect", "Already connected.");
        return true;
    }
    logline::write(Level::INFO, origin(), "connect", "Try connect to server: ", target);
    return target.useTcp ? openStream(target) : openDatagrams(target);
}

bool EthernetInterface::disconnect()
{
    return closeTaken(takeSocket());
}

/// Opens the socket and notes the address of the server.
/// @return the descriptor, or -1 (logged)
int EthernetInterface::openTowards(const Configuration& target)
{
    const int fd = openSelectableSocket(target.useTcp ? SOCK_STREAM : SOCK_DGRAM);
    if (fd < 0) {
        const int error = errno;
        logline::write(Level::ERROR, origin(), "connect", "socket(): ", strerror(error));
        return -1;
    }
    const sockaddr_in server = socketAddress(target.serverIp, target.port);
    {
        const MutexLock lock(stateMutex);
        serverAddr = server;
    }
    if (logLevel >= 1) {
        logline::write(Level::DEBUG, origin(), "connect", "serverAddr: ", server);
    }
    return fd;
}

/// A stream is published when it can be used: until then nobody else closes it or sends on it.
bool EthernetInterface::openStream(const Configuration& target)
{
    const int fd = openTowards(target);
    if (fd < 0) {
        return false;
    }
    const sockaddr_in server = socketAddress(target.serverIp, target.port);
    if (::connect(fd, generic(server), sizeof server) < 0) {
        const int error = errno;
        logline::write(Level::ERROR, origin(), "connect", "connect(): ", strerror(error));
        closeDescriptor(fd);
        return false;
    }
    const int on = 1;
    if (setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) < 0) {
        const int error = errno;
        logline::write(Level::ERROR, origin(), "connect", "setsockopt() disable Nagle: ", strerror(error));
        closeDescriptor(fd);
        return false;
    }
    if (!publish(fd, true, server)) {
        return giveWay(fd);
    }
    becomeConnected(fd);
    return true;
}

/// A datagram socket is published after the attempt to bind it, whatever came of that: a send() in between would
/// bind it to some other port.
bool EthernetInterface::openDatagrams(const Configuration& target)
{
    int fd = -1;
    int bindError = 0;
    bool isPublished = false;
    {
        // Over before the callbacks of becomeConnected(): one that connects would wait for itself.
        const AtScopeEnd changeEnds([this] { endChange(); });
        fd = openTowards(target);
        if (fd < 0) {
            return false;
        }
        bindError = bindHere(fd, target);
        isPublished = publish(fd, false, socketAddress(target.serverIp, target.port));
    }
    if (!isPublished) {
        return giveWay(fd);
    }
    if (bindError != 0) {
        // The socket stays open here: the next connect() reports it as connected.
        logline::write(Level::ERROR, origin(), "connect", "bind() failed: ", strerror(bindError));
        return false;
    }
    becomeConnected(fd);
    return true;
}

/// @return 0, or the error number
int EthernetInterface::bindHere(int fd, const Configuration& target)
{
    // One port number serves both ends.
    const sockaddr_in local = socketAddress(target.loggerIp, target.port);
    if (logLevel >= 1) {
        logline::write(Level::DEBUG, origin(), "connect", "socketAddr: ", local);
    }
    return bind(fd, generic(local), sizeof local) < 0 ? errno : 0;
}

/// Another thread was faster; its connection stands.
bool EthernetInterface::giveWay(int fd)
{
    close(fd);
    logline::write(Level::INFO, origin(), "connect", "Already connected.");
    return true;
}

void EthernetInterface::becomeConnected(int fd)
{
    {
        const MutexLock lock(stateMutex);
        FD_ZERO(&readSet);
        FD_SET(fd, &readSet);
    }
    startReceiveThread();
    sentCount = 0;
    receivedCount = 0;
    reportState(1);
}

/// Waits until no other thread is closing a socket or binding one: the port is taken as long. The waits are short,
/// neither holds out for the network or for a callback.
/// @return false if the interface is connected. If true, and for datagrams, endChange() has to follow
bool EthernetInterface::beginOpening(const Configuration& target)
{
    const MutexLock lock(stateMutex);
    while (changesInProgress != 0) {
        changeEnded.wait(stateMutex);
    }
    if (socketFd >= 0) {
        return false;
    }
    if (!target.useTcp) {
        ++changesInProgress;
    }
    return true;
}

void EthernetInterface::endChange()
{
    const MutexLock lock(stateMutex);
    --changesInProgress;
    changeEnded.notify_all();
}

/// Makes a socket the interface's own.
/// @return false if it has another one by now
bool EthernetInterface::publish(int fd, bool isStream, const sockaddr_in& server)
{
    auto opened = std::make_shared<OpenSocket>(fd, isStream, server, ethernet::brokenPipeIsFatal());
    const MutexLock lock(stateMutex);
    if (socketFd >= 0) {
        return false;
    }
    openSocket = std::move(opened);
    socketFd = fd;
    return true;
}

std::shared_ptr<OpenSocket> EthernetInterface::takeSocket()
{
    const MutexLock lock(stateMutex);
    return takeSocketLocked();
}

/// Takes the socket out, so that no other thread closes it. Whoever gets one must pass it to closeTaken().
std::shared_ptr<OpenSocket> EthernetInterface::takeSocketLocked()
{
    socketFd = -1;
    if (openSocket != nullptr) {
        ++changesInProgress;
    }
    return std::exchange(openSocket, nullptr);
}

bool EthernetInterface::closeTaken(const std::shared_ptr<OpenSocket>& taken)
{
    if (taken == nullptr) {
        logline::write(Level::INFO, origin(), "disconnect", "Already disconnected.");
        return true;
    }
    taken->withdraw();
    return closeDescriptor(taken->fd, true);
}

/// @param isChange  takeSocket() has announced this close
bool EthernetInterface::closeDescriptor(int fd, bool isChange)
{
    if (logLevel >= 1) {
        logline::write(Level::DEBUG, origin(), "disconnect", "Close socket.");
    }
    const int result = close(fd);
    const int error = errno;
    if (isChange) {
        endChange();
    }
    if (result < 0) {
        logline::write(Level::ERROR, origin(), "disconnect", "Close socket failed: ", strerror(error));
        return false;
    }
    logline::write(Level::INFO, origin(), "disconnect", "Disconnected.");
    reportState(2);
    return true;
}
