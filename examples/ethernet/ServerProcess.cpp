#include "ServerProcess.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string serverProgram()
{
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ethernet_server").string();
}

/// Reads the line with the number of the port.
/// @return 0 if the server ends instead
uint16_t readPort(int fd)
{
    std::string line;
    char next = 0;
    while (read(fd, &next, 1) == 1 && next != '\n') {
        line += next;
    }
    return static_cast<uint16_t>(std::strtoul(line.c_str(), nullptr, 10));
}

} // namespace

ServerProcess::ServerProcess(const std::string& transport, uint16_t wantedPort)
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no connection to a server process");
    }
    // Before fork(): between that and exec() a child of a program with threads must not allocate.
    const std::string program = serverProgram();
    const std::string port = std::to_string(wantedPort);
    process = fork();
    if (process == 0) {
        if (dup2(ends[1], STDIN_FILENO) >= 0 && dup2(ends[1], STDOUT_FILENO) >= 0) {
            execl(program.c_str(), program.c_str(), transport.c_str(), port.c_str(), nullptr);
        }
        _exit(EXIT_FAILURE);
    }
    close(ends[1]);
    toServer = ends[0];
    listeningPort = process > 0 ? readPort(toServer) : uint16_t{0};
    if (listeningPort == 0) {
        close(toServer);
        if (process > 0) {
            waitpid(process, nullptr, 0);
        }
        throw std::runtime_error("the server " + program + " does not start");
    }
}

ServerProcess::~ServerProcess()
{
    close(toServer);
    waitpid(process, nullptr, 0);
}
