#pragma once

#include <logger/LockFile.h>
#include <wire/FileDescriptor.h>

#include <sys/types.h>

#include <optional>
#include <string>

namespace vlogger {

/// A place in the file system where clients find the virtual logger.
///
/// Its directory belongs to this user and to nobody else. A socket whose owner has died is taken over, that of a
/// living one never; two that start at once are kept apart by a lock file beside the socket.
class SocketPath
{
public:
    /// Claims the path and listens there.
    /// @throws std::system_error as VirtualLogger says
    explicit SocketPath(std::string socketPath);

    /// Removes the socket, unless somebody has put another one in its place.
    ~SocketPath();
    SocketPath(const SocketPath&) = delete;
    SocketPath& operator=(const SocketPath&) = delete;

    /// The file whose lock its owner holds from before the socket is there until after it has gone.
    static std::string lockOf(const std::string& socketPath) { return socketPath + ".lock"; }

    /// The listening socket, non-blocking; once.
    wire::FileDescriptor takeListener() { return std::move(listener); }

private:
    const std::string path;
    std::optional<LockFile> claim;
    wire::FileDescriptor listener;
    dev_t device = 0;
    ino_t inode = 0;
};

} // namespace vlogger
