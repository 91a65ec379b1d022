#pragma once

#include <config/Configuration.h>
#include <logger/EpollLoop.h>
#include <logger/VirtualLogger.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace vlogger {

class EthernetPeer;
class FaultPlan;

/// What a virtual logger is built from, by a configuration.
/// @param socketPath  where it listens; empty: nowhere
Options optionsOf(const config::Configuration& configuration, const std::string& socketPath);

/// A virtual logger with everything that a configuration puts around it: nodes, Ethernet peers, faults at their
/// times.
///
/// Threads: as VirtualLogger. A thread of its own serves peers and faults.
class Bench
{
public:
    /// @throws std::system_error if socket or a peer's port cannot be had
    /// @throws std::invalid_argument with every mistake if the configuration has any
    Bench(const config::Configuration& configuration, const std::string& socketPath);
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    VirtualLogger& logger() { return virtualLogger; }

private:
    VirtualLogger virtualLogger;
    EpollLoop loop;
    std::vector<std::unique_ptr<EthernetPeer>> peers;
    std::unique_ptr<FaultPlan> faults;
    std::thread thread;
};

} // namespace vlogger
