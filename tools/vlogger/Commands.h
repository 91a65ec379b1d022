#pragma once

#include <CLI/CLI.hpp>

#include <string>

/// The commands of the program. Each adds itself to the command line and sets the exit code when it has run.
namespace tool {

/// What all commands share.
struct Context
{
    std::string socket; ///< --socket; empty: not given
    int exitCode = 0;
};

void addServe(CLI::App& app, Context& context);
void addRun(CLI::App& app, Context& context);
void addDump(CLI::App& app, Context& context);
void addSend(CLI::App& app, Context& context);
void addReplay(CLI::App& app, Context& context);
void addRecord(CLI::App& app, Context& context);
void addConvert(CLI::App& app, Context& context);
void addStat(CLI::App& app, Context& context);
void addConfig(CLI::App& app, Context& context);

} // namespace tool
