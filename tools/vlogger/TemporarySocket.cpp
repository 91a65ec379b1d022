#include "TemporarySocket.h"

#include <logger/LockFile.h>
#include <logger/SocketPath.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace tool {

namespace {

constexpr const char* SOCKET_NAME = "/socket";
// Not TMPDIR: the path of a socket may have 107 bytes only.
constexpr const char* PLACE = "/tmp";
constexpr std::string_view PREFIX = "vlogger-run-";

/// True if the directory is this user's and somebody has listened in it: the socket comes after the lock, so that its
/// virtual logger holds that lock as long as it lives. Without a socket it may just be starting.
bool hasBeenServed(const std::string& directory)
{
    struct stat state
    {
    };
    return ::lstat(directory.c_str(), &state) == 0 && S_ISDIR(state.st_mode) && state.st_uid == ::geteuid() &&
           ::lstat((directory + SOCKET_NAME).c_str(), &state) == 0 && S_ISSOCK(state.st_mode);
}

/// Removes the directory if the virtual logger in it is dead.
void removeIfDead(const std::string& directory)
{
    if (!hasBeenServed(directory)) {
        return;
    }
    const std::string socket = directory + SOCKET_NAME;
    try {
        const vlogger::LockFile claim(vlogger::SocketPath::lockOf(socket));
        ::unlink(socket.c_str());
    } catch (const std::system_error&) {
        return; // it lives, or somebody else is removing it
    }
    ::rmdir(directory.c_str());
}

/// Nobody else knows where a killed `run` has left its directory.
void removeDead()
{
    std::error_code ignored;
    for (std::filesystem::directory_iterator entry(PLACE, ignored), end; entry != end; entry.increment(ignored)) {
        if (entry->path().filename().string().starts_with(PREFIX)) {
            removeIfDead(entry->path().string());
        }
    }
}

} // namespace

TemporarySocket::TemporarySocket()
{
    removeDead();
    std::string name = std::string(PLACE) + "/" + std::string(PREFIX) + "XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    directory = name;
}

std::string TemporarySocket::path() const
{
    return directory + SOCKET_NAME;
}

TemporarySocket::~TemporarySocket()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

} // namespace tool
