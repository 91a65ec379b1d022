#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

/// The echo server, running as a process of its own.
class ServerProcess
{
public:
    /// Starts the program "ethernet_server" that lies beside this one, and waits until it listens.
    /// @param transport  "tcp" or "udp"
    /// @param wantedPort 0: any free one
    /// @throws std::runtime_error if it does not start
    explicit ServerProcess(const std::string& transport, uint16_t wantedPort = 0);
    /// Ends it and waits until it is gone.
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    uint16_t port() const { return listeningPort; }

private:
    pid_t process = -1;
    int toServer = -1; ///< the server ends when this is closed, so it cannot outlive us
    uint16_t listeningPort = 0;
};
