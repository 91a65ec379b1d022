#include "endpoint/LoggerSocket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace vqhost {

namespace {

[[noreturn]] void fail(int errorNumber, const std::string& what)
{
    throw std::system_error(errorNumber, std::generic_category(), what);
}

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        fail(ENAMETOOLONG, path);
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

void checkPeer(int fd, const std::string& path)
{
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        fail(errno, path);
    }
    if (peer.uid != geteuid()) {
        fail(EACCES, path + ": the process behind it is another user's");
    }
}

} // namespace

void limitSending(int fd, std::chrono::seconds limit)
{
    const timeval time{.tv_sec = limit.count(), .tv_usec = 0};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof(time)) != 0) {
        fail(errno, "SO_SNDTIMEO");
    }
}

wire::FileDescriptor connectToLogger(const std::string& path)
{
    const sockaddr_un address = addressOf(path);
    wire::FileDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!connection) {
        fail(errno, "socket");
    }
    limitSending(connection.get(), ANSWER_LIMIT);
    int result = 0;
    do {
        result = ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        fail(errno == EAGAIN ? ETIMEDOUT : errno, path);
    }
    checkPeer(connection.get(), path);
    limitSending(connection.get(), std::chrono::seconds(0));
    return connection;
}

void checkSocketDirectory(const std::string& path)
{
    const std::string directory = path.substr(0, path.rfind('/'));
    struct stat status
    {
    };
    if (lstat(directory.c_str(), &status) != 0) {
        fail(errno, directory);
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        fail(EACCES, directory + ": it is not this user's alone");
    }
}

} // namespace vqhost
