#include "Options.h"

#include <CLI/CLI.hpp>

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode)
{
    constexpr int WRONG_USAGE = 2;

    Options options;
    CLI::App app("Replays a candump log through the logger's CAN channels and counts what arrives.\n"
                 "The n-th interface of the log, counted from 0, is sent on channel 2n and received on channel\n"
                 "2n+1, which has to be wired to it. Frames are sent as fast as the logger takes them.");
    app.add_option("--log", options.logFile, "candump log: (seconds.micros) interface id#data, one frame per line")
        ->required()
        ->type_name("FILE");
    app.add_option("--lines", options.linesFile,
                   "write the library's diagnostic lines to FILE instead of standard output")
        ->type_name("FILE");
    app.footer("Example:\n  raw_can --log drive.log --lines library.txt\n\n"
               "Exit codes: 0 every frame arrived, 1 frames were lost or something failed, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? 0 : WRONG_USAGE;
        return std::nullopt;
    }
    return options;
}
