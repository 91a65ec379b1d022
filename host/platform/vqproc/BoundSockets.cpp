#include "vqproc/BoundSockets.h"

#include <sys/socket.h>

#include <charconv>
#include <filesystem>
#include <string>
#include <system_error>

namespace vqhost {

namespace {

bool hasAddress(int fd, in_addr address)
{
    sockaddr_in own = {};
    socklen_t length = sizeof own;
    // Whatever is no socket, or is closed by now, fails here.
    return getsockname(fd, reinterpret_cast<sockaddr*>(&own), &length) == 0 && own.sin_family == AF_INET &&
           own.sin_addr.s_addr == address.s_addr;
}

} // namespace

bool isBoundInThisProcess(in_addr address)
{
    std::error_code failure; // no descriptor is left to list them with, for example: nothing is known then
    for (std::filesystem::directory_iterator entry("/proc/self/fd", failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const std::string name = entry->path().filename().string();
        int fd = -1;
        std::from_chars(name.data(), name.data() + name.size(), fd);
        if (hasAddress(fd, address)) {
            return true;
        }
    }
    return false;
}

} // namespace vqhost
