#include "ethernet/OpenSocket.h"

#include <sys/socket.h>

namespace ethernet {

OpenSocket::OpenSocket(int socketDescriptor, bool stream, const sockaddr_in& serverAddress, bool brokenPipeKills)
    : fd(socketDescriptor), isStream(stream), server(serverAddress), brokenPipeIsFatal(brokenPipeKills)
{
}

void OpenSocket::Use::release()
{
    if (socket != nullptr) {
        socket->leave();
        socket = nullptr;
    }
}

bool OpenSocket::enter()
{
    ++users;
    if (!withdrawn) {
        return true;
    }
    leave();
    return false;
}

void OpenSocket::leave()
{
    if (--users == 0 && withdrawn) {
        const MutexLock lock(mutex);
        left.notify_all();
    }
}

void OpenSocket::withdraw()
{
    withdrawn = true;
    if (users == 0) {
        return;
    }
    // Ends a wait for data and a send that the server keeps waiting. Fails on a datagram socket, which has no peer,
    // but wakes there, too.
    shutdown(fd, SHUT_RDWR);
    const MutexLock lock(mutex);
    while (users != 0) {
        left.wait(mutex);
    }
}

} // namespace ethernet
