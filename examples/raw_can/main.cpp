// Replays a candump log through the logger's CAN channels, receives it on the channels wired to them and counts.
// run() shows the order in which an application works with the library.

#include "Options.h"
#include "Progress.h"
#include "Receiver.h"
#include "Report.h"
#include "Traffic.h"

#include <CanInterface.h>
#include <LibraryLines.h>
#include <MsgRxHandler.h>

#include <capture/CandumpLog.h>

#include <deque>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace {

/// How long nothing may happen before the wait for it is given up; far above what a working logger needs.
constexpr std::chrono::seconds PATIENCE{10};

/// Sends the whole log, each frame through the interface of its channel, identifier and type.
void sendLog(const std::string& file, const Traffic& traffic, std::map<SenderKey, CanInterface>& senders,
             Outcome& outcome)
{
    std::ifstream stream(file);
    capture::CandumpReader reader(stream);
    capture::CandumpFrame frame;
    Progress progress(traffic.frames);
    uint64_t frames = 0;
    while (reader.next(frame)) {
        if (frame.kind != capture::FrameKind::DATA) {
            continue;
        }
        const SenderKey key{traffic.channels.at(frame.interfaceName), frame.id, typeOf(frame)};
        if (senders.at(key).send(frame.payload.data(), frame.lengthBytes) == 0) {
            ++outcome.sent[rowOf(key)];
        } else {
            ++outcome.refused;
        }
        progress.sent(++frames);
    }
}

Outcome run(const std::string& file, const Traffic& traffic)
{
    // Callback objects first: they have to outlive the interfaces that call them.
    StartState start;
    Arrivals arrivals;
    std::deque<Receiver> receivers;
    std::set<uint8_t> sendingChannels;
    for (const SenderKey& key : traffic.senders) {
        sendingChannels.insert(key.channel);
    }
    for (const uint8_t channel : sendingChannels) {
        receivers.emplace_back(channel, traffic, start, arrivals);
    }
    std::map<SenderKey, CanInterface> senders;
    for (const SenderKey& key : traffic.senders) {
        senders[key].configure({key.channel, key.id, key.type, {}});
    }

    // 1. Configure: from now on the callbacks hear of state changes.
    for (Receiver& receiver : receivers) {
        receiver.configure();
    }
    // 2. Go online, once per process: the receive thread opens the devices.
    MsgRxHandler::getInstance()->setOnline();
    // 3. Wait for status 1. Opening leaves every device inactive.
    if (!start.waitForOnline(PATIENCE)) {
        MsgRxHandler::getInstance()->setOffline();
        throw std::runtime_error("the logger's devices cannot be opened; the library's lines name the device");
    }
    // 4. Configure again: a registration activates the device of its channel. From now on frames arrive.
    for (Receiver& receiver : receivers) {
        receiver.configure();
    }

    Outcome outcome;
    const auto begin = std::chrono::steady_clock::now();
    sendLog(file, traffic, senders, outcome);
    const auto end = arrivals.waitFor(outcome.sent, PATIENCE);
    outcome.duration = end.value_or(std::chrono::steady_clock::now()) - begin;

    // Before the interfaces go: a destroyed one silences those that remain.
    MsgRxHandler::getInstance()->setOffline();
    outcome.received = arrivals.counts();
    return outcome;
}

} // namespace

int main(int argc, char** argv)
{
    int exitCode = 0;
    const std::optional<Options> options = parseOptions(argc, argv, exitCode);
    if (!options) {
        return exitCode;
    }
    std::ostream report(std::cout.rdbuf());
    try {
        if (!options->linesFile.empty()) {
            moveLibraryLines(options->linesFile);
        }
        const Traffic traffic = surveyLog(options->logFile, boardChannelCount());
        const Outcome outcome = run(options->logFile, traffic);
        const uint64_t lost = printReport(report, traffic, outcome);
        return lost == 0 && outcome.refused == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "raw_can: " << error.what() << '\n';
        return 1;
    }
}
