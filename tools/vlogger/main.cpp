#include "Commands.h"
#include "ExitCode.h"
#include "OptionCheck.h"
#include "StandardStreams.h"
#include "Usage.h"

#include <config/ConfigurationError.h>
#include <config/NearestName.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* DESCRIPTION =
    "A logger in software: several programs on one bench, and tools to look, send, record and replay.";

constexpr const char* EXAMPLES =
    "\nExamples:\n"
    "  vlogger serve                                    a virtual logger until Ctrl-C\n"
    "  vlogger run -- ./my_program                      one for the life of a program\n"
    "  vlogger dump can0 can1,100:7F0                   watch two channels\n"
    "  vlogger send can1 123#DEADBEEF                   send one frame\n"
    "  vlogger record trip.pcapng                       record until Ctrl-C\n"
    "  vlogger replay trip.log --map can0=3 --speed 2   replay at twice the speed\n"
    "  vlogger convert trip.pcapng trip.log             change the format of a capture\n"
    "  vlogger stat --watch                             load and loss at a glance\n"
    "  vlogger config show                              every setting with its default\n"
    "\nThe virtual logger is found at --socket, else at VLOGGER, else at the user's default socket.\n"
    "Exit codes: 0 success, 1 failure, 2 wrong usage, 3 done but frames were lost or unreadable;\n"
    "run ends like its program (125: no virtual logger, 126: not executable, 127: not found,\n"
    "128 and more: killed by a signal).\n";

int report(const char* text, int exitCode)
{
    std::cerr << "vlogger: " << text << std::endl;
    return exitCode;
}

/// The parser alone says that a command is missing, not that the given one is none.
/// @throws WrongUsage if a word stands where one of the commands has to
void refuseUnknownCommand(const CLI::App& app)
{
    const CLI::App* innermost = &app;
    while (!innermost->get_subcommands().empty()) {
        innermost = innermost->get_subcommands().back();
    }
    // What `config` cannot use ends at the top.
    const std::vector<std::string> rest = app.remaining();
    const std::vector<const CLI::App*> commands = innermost->get_subcommands(nullptr); // all that there are
    if (commands.empty() || rest.empty() || rest.front().starts_with('-')) {
        return;
    }
    std::vector<std::string_view> names;
    names.reserve(commands.size());
    for (const CLI::App* const command : commands) {
        names.emplace_back(command->get_name());
    }
    throw tool::WrongUsage("unknown command \"" + rest.front() + "\"; the nearest known name is \"" +
                           std::string(config::nearestName(rest.front(), names)) + "\"");
}

int run(int argumentCount, char** arguments)
{
    tool::Context context;
    CLI::App app(DESCRIPTION, "vlogger");
    app.footer(EXAMPLES);
    app.set_version_flag("--version", "vlogger " VLOGGER_VERSION);
    app.add_option("--socket", context.socket, "Socket of the virtual logger")
        ->check(tool::notEmpty())
        ->type_name("PATH");
    app.require_subcommand(1);
    app.fallthrough();
    tool::addServe(app, context);
    tool::addRun(app, context);
    tool::addDump(app, context);
    tool::addSend(app, context);
    tool::addReplay(app, context);
    tool::addRecord(app, context);
    tool::addConvert(app, context);
    tool::addStat(app, context);
    tool::addConfig(app, context);
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            refuseUnknownCommand(app);
        }
        if (app.exit(error) != 0) {
            return tool::WRONG_USAGE;
        }
    }
    return tool::flushStandardOutput() ? context.exitCode
                                       : report("standard output cannot be written", tool::FAILURE);
}

} // namespace

int main(int argumentCount, char** arguments)
{
    tool::occupyStandardStreams();
    // A reader that has gone, such as `head`, shows when writing.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argumentCount, arguments);
    } catch (const tool::WrongUsage& error) {
        return report(error.what(), tool::WRONG_USAGE);
    } catch (const config::ConfigurationError& error) {
        std::cerr << error.what() << std::endl;
        return tool::FAILURE;
    } catch (const std::exception& error) {
        return report(error.what(), tool::FAILURE);
    }
}
