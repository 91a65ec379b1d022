#include "Commands.h"
#include "ExitCode.h"
#include "LoggerClient.h"
#include "LoggerGone.h"
#include "OptionCheck.h"
#include "StatTable.h"
#include "StopSignal.h"
#include "Terminal.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace tool {

namespace {

struct Options
{
    bool isWatch = false;
    bool isJson = false;
    double everySeconds = 1;
    uint64_t count = 0;
};

constexpr const char* HOME = "\033[H";
constexpr const char* CLEAR_SCREEN = "\033[2J";
constexpr const char* CLEAR_REST_OF_LINE = "\033[K";
constexpr const char* CLEAR_REST = "\033[J";

/// Draws over what stands there instead of clearing first, so that nothing flickers. What does not fit is left out:
/// a terminal that scrolls shows nothing that one could read.
std::string overdrawn(const std::string& table, size_t rows)
{
    const bool fits = static_cast<size_t>(std::ranges::count(table, '\n')) < rows;
    std::string text = HOME;
    size_t row = 0;
    for (const char c : table) {
        if (c != '\n') {
            text += c;
            continue;
        }
        text.append(CLEAR_REST_OF_LINE).append("\n");
        if (!fits && ++row + 2 >= rows) {
            text += "more stages than rows; vlogger stat shows them all";
            break;
        }
    }
    return text + CLEAR_REST;
}

void watch(const Options& options, const LoggerClient& client)
{
    StopSignal stop;
    wire::StageReport before = client.statistics();
    if (terminalAt(STDOUT_FILENO) && !options.isJson) {
        std::cout << CLEAR_SCREEN;
    }
    for (uint64_t round = 0; (options.count == 0 || round < options.count) && std::cout; ++round) {
        if (stop.wait(-1, static_cast<int>(options.everySeconds * 1000))) {
            break;
        }
        wire::StageReport report = askAgain([&] { return client.statistics(); });
        if (options.isJson) {
            std::cout << statJson(report) << std::endl;
        } else {
            const auto screen = terminalAt(STDOUT_FILENO);
            const std::string table =
                statTable(report, &before, screen.has_value(), screen ? layoutFor(screen->columns) : StatLayout());
            // Where nothing can be drawn over, one table follows the other.
            std::cout << (screen ? overdrawn(table, screen->rows) : table + "\n") << std::flush;
        }
        before = std::move(report);
    }
}

void stat(const Options& options, Context& context)
{
    const LoggerClient client(context.socket);
    if (options.isWatch) {
        watch(options, client);
    } else if (options.isJson) {
        std::cout << statJson(client.statistics()) << std::endl;
    } else {
        const auto screen = terminalAt(STDOUT_FILENO);
        std::cout << statTable(client.statistics(), nullptr, screen.has_value(),
                               screen ? layoutFor(screen->columns) : StatLayout())
                  << std::flush;
    }
    context.exitCode = SUCCESS;
}

} // namespace

void addStat(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("stat", "Count the frames on their way");
    CLI::Option* const watch = command->add_flag("-w,--watch", options->isWatch, "Again and again, until Ctrl-C");
    command->add_option("--every", options->everySeconds, "Seconds between two looks")
        ->check(seconds(0.05, 3600))
        ->needs(watch)
        ->type_name("S")
        ->capture_default_str();
    command->add_option("-n,--count", options->count, "With --watch: end after so many looks")
        ->transform(wholeNumber(1))
        ->needs(watch)
        ->type_name("N");
    command->add_flag("--json", options->isJson, "One JSON object per look");
    command->footer(
        "\nThe stages stand in the order in which a frame passes them: bus, device queue, stream of an\n"
        "opener, reader. A device queue drops what nobody has opened the device for, a stream what its\n"
        "reader did not take for too long.\n"
        "\nExamples:\n"
        "  vlogger stat\n"
        "  vlogger stat --watch\n"
        "  vlogger stat --json\n");
    command->callback([options, &context] { stat(*options, context); });
}

} // namespace tool
