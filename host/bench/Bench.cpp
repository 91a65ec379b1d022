#include <bench/Bench.h>

#include <bench/EthernetPeer.h>
#include <bench/FaultPlan.h>
#include <bench/ScriptedNodes.h>
#include <config/ConfigurationCheck.h>
#include <logger/SteadyClock.h>

#include <pthread.h>

#include <csignal>
#include <stdexcept>

namespace vlogger {

namespace {

const config::Configuration& checked(const config::Configuration& configuration)
{
    std::string mistakes;
    for (const std::string& sentence : config::check(configuration)) {
        mistakes.append(mistakes.empty() ? "" : "\n").append(sentence);
    }
    if (!mistakes.empty()) {
        throw std::invalid_argument(mistakes);
    }
    return configuration;
}

} // namespace

Options optionsOf(const config::Configuration& configuration, const std::string& socketPath)
{
    return {.board = configuration.board,
            .buses = configuration.wiring.buses,
            .socketPath = socketPath,
            .streamQueueBytes = configuration.queues.streamBytes,
            .stallLimit = std::chrono::milliseconds(configuration.queues.stallLimitMs),
            .takenAddresses = configuration.addresses.taken,
            .nodes = scriptedNodes(configuration.nodes)};
}

Bench::Bench(const config::Configuration& configuration, const std::string& socketPath)
    : virtualLogger(optionsOf(checked(configuration), socketPath)), loop(std::make_shared<SteadyClock>())
{
    for (const config::Peer& peer : configuration.peers) {
        peers.push_back(std::make_unique<EthernetPeer>(loop, peer));
    }
    faults = std::make_unique<FaultPlan>(loop, virtualLogger, configuration.faults, peers);
    // Signals are the program's; its threads inherit what is blocked.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { loop.run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Bench::~Bench()
{
    loop.stop();
    thread.join();
}

} // namespace vlogger
