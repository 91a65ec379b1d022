#include "Commands.h"
#include "ExitCode.h"
#include "StandardStreams.h"
#include "StopSignal.h"

#include <bench/Bench.h>
#include <config/ConfigurationReader.h>
#include <wire/DefaultSocket.h>

#include <cstdlib>
#include <iostream>
#include <memory>

namespace tool {

namespace {

struct Options
{
    std::string configuration;
};

std::string socketToServe(const Context& context)
{
    if (!context.socket.empty()) {
        return context.socket;
    }
    const char* const variable = std::getenv("VLOGGER");
    return variable != nullptr && *variable != '\0' && std::string(variable) != "embedded"
               ? variable
               : wire::defaultSocketPath();
}

void serve(const Options& options, Context& context)
{
    StopSignal stop;
    const config::Configuration configuration = options.configuration.empty()
                                                    ? config::Configuration()
                                                    : config::readConfigurationFile(options.configuration);
    const std::string socket = socketToServe(context);
    const vlogger::Bench bench(configuration, socket);
    std::cout << "vlogger: ready at " << socket << std::endl;
    // Whoever waits for that line would wait for ever; one that has seen enough of us is another matter.
    if (flushStandardOutput()) {
        stop.wait(-1, -1);
    }
    context.exitCode = SUCCESS;
}

} // namespace

void addServe(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("serve", "Run a virtual logger until Ctrl-C or SIGTERM");
    command->add_option("--config", options->configuration, "Configuration in TOML; see docs/configuration.md")
        ->type_name("FILE");
    command->footer("\nWrites one line to standard output once it can be reached: \"vlogger: ready at PATH\".\n"
                    "\nExamples:\n"
                    "  vlogger serve\n"
                    "  vlogger serve --config bench.toml --socket /tmp/bench/socket\n");
    command->callback([options, &context] { serve(*options, context); });
}

} // namespace tool
