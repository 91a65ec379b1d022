// The bench of the example: a virtual logger with a simulated ECU on the bus of channel 0 and 1. The ECU is a scripted
// node, so that the library talks to something else than itself. Listens on a socket; VLOGGER leads others there.

#include <StopSignal.h>

#include <logger/VirtualLogger.h>
#include <logger/node/IsoTpNode.h>

#include <exception>
#include <iostream>

namespace {

vlogger::IsoTpNodeOptions controlUnit()
{
    vlogger::IsoTpNodeOptions ecu; // requests with 0x7E0, answers with 0x7E8
    ecu.channel = 1;
    // With another block size the library leaves out frames, and the request never becomes whole.
    ecu.blockSize = 0;
    ecu.answers = vlogger::diagnosticAnswers("TESTVEH1C1E000042");
    ecu.answers.push_back({.request = {0x2E, 0xF1, 0x90}, .mask = {}, .response = {0x6E, 0xF1, 0x90}});
    ecu.answers.push_back({.request = {0xBA}, .mask = {}, .response = {}, .echo = true});
    return ecu;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 || argv[1][0] == '\0') {
        std::cerr << "usage: " << argv[0]
                  << " SOCKET\nRuns a virtual logger with an ECU until SIGINT or SIGTERM.\n";
        return 2;
    }
    try {
        const StopSignal stop;
        vlogger::Options options;
        options.socketPath = argv[1];
        options.nodes = {std::make_shared<vlogger::IsoTpNode>(controlUnit())};
        const vlogger::VirtualLogger logger(options);
        std::cout << "ecu: ready" << std::endl;
        stop.wait();
    } catch (const std::exception& error) {
        std::cerr << "ecu: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
