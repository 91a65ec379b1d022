#include <logger/PeerCredentials.h>

#include <sys/socket.h>
#include <unistd.h>

namespace vlogger {

bool isSameUser(int fd)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

} // namespace vlogger
