#include <wire/DefaultSocket.h>

#include <unistd.h>

#include <cstdlib>

namespace wire {

std::string defaultSocketPath()
{
    const char* const runtimeDirectory = std::getenv("XDG_RUNTIME_DIR");
    if (runtimeDirectory != nullptr && runtimeDirectory[0] == '/') {
        return std::string(runtimeDirectory) + "/vlogger/socket";
    }
    return "/tmp/vlogger-" + std::to_string(geteuid()) + "/socket";
}

} // namespace wire
