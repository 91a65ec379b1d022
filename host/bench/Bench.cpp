#include <bench/Bench.h>

#include <bench/CyclicSender.h>
#include <bench/EthernetPeer.h>
#include <bench/FaultPlan.h>
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
    for (const config::Node& node : configuration.nodes) {
        // Said, not passed over in silence: whoever waits for an answer would look for the fault elsewhere.
        if (!node.answers.empty()) {
            mistakes.append(mistakes.empty() ? "" : "\n");
            mistakes.append("node \"" + node.name + "\": nodes send cyclic frames; answers are not served yet");
        }
    }
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
            .takenAddresses = configuration.addresses.taken};
}

Bench::Bench(const config::Configuration& configuration, const std::string& socketPath)
    : virtualLogger(optionsOf(checked(configuration), socketPath)), loop(std::make_shared<SteadyClock>())
{
    for (const config::Peer& peer : configuration.peers) {
        peers.push_back(std::make_unique<EthernetPeer>(loop, peer));
    }
    for (const config::Node& node : configuration.nodes) {
        for (const config::CyclicFrame& frame : node.cyclic) {
            senders.push_back(std::make_unique<CyclicSender>(loop, virtualLogger, node.channel, frame));
        }
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
