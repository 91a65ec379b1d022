#include "Commands.h"
#include "ExitCode.h"
#include "FilterSet.h"
#include "FrameText.h"
#include "JsonText.h"
#include "MonitorReader.h"
#include "OptionCheck.h"
#include "StandardStreams.h"
#include "TimeLimit.h"

#include <capture/Counted.h>

#include <cstdio>
#include <iostream>
#include <limits>
#include <memory>

namespace tool {

namespace {

/// How often a dump that has nothing to show looks whether anybody still reads it.
constexpr int LOOK_MS = 200;

struct Options
{
    std::vector<std::string> filters;
    uint64_t count = std::numeric_limits<uint64_t>::max();
    bool isLog = false;
    bool isJson = false;
    bool hasDirection = false;
    std::string time;
    double seconds = 0;
};

/// Puts out frames in the form that the user has asked for.
class Printer
{
public:
    explicit Printer(const Options& chosen) : options(chosen) {}

    void print(const wire::MonitorEvent& event, const capture::CandumpFrame& frame)
    {
        std::string line;
        if (options.isJson) {
            line = jsonOf(frame, event.isSent);
        } else if (options.isLog) {
            line = capture::formatCandumpLine(frame);
        } else {
            line = timeOf(frame.timestampUs) + "  " + frame.interfaceName +
                   (!options.hasDirection ? ""
                    : event.isSent        ? "  TX"
                                          : "  RX") +
                   "  " + formatShown(frame);
        }
        std::cout << line << '\n';
    }

private:
    std::string timeOf(uint64_t timestampUs)
    {
        if (options.time.empty()) {
            return "";
        }
        uint64_t shown = timestampUs;
        if (options.time == "d") {
            shown = previousUs == 0 ? 0 : timestampUs - previousUs;
        } else if (options.time == "z") {
            firstUs = firstUs == 0 ? timestampUs : firstUs;
            shown = timestampUs - firstUs;
        }
        previousUs = timestampUs;
        char text[40];
        const int size = std::snprintf(
            text, sizeof text, options.time == "a" ? " (%010llu.%06llu)" : " (%03llu.%06llu)",
            static_cast<unsigned long long>(shown / 1000000), static_cast<unsigned long long>(shown % 1000000));
        return {text, static_cast<size_t>(size)};
    }

    const Options& options;
    uint64_t firstUs = 0;
    uint64_t previousUs = 0;
};

void dump(const Options& options, Context& context)
{
    requireStandardOutput();
    StopSignal stop;
    const FilterSet filters(options.filters);
    MonitorReader monitor(LoggerClient(context.socket), filters);
    Printer printer(options);
    const TimeLimit limit(options.seconds);
    uint64_t shown = 0;
    uint64_t missed = 0;
    bool hasLoggerGone = false;
    while (shown < options.count && std::cout) {
        if (limit.isOver()) {
            monitor.finish();
        }
        wire::MonitorEvent event;
        const auto result = monitor.next(event, stop, limit.remainingMs(LOOK_MS));
        if (result == MonitorReader::Result::QUIET) {
            std::cout.flush();
            if (hasReaderGone()) {
                break;
            }
        } else if (result != MonitorReader::Result::EVENT) {
            hasLoggerGone = result == MonitorReader::Result::ENDED;
            break;
        } else if (event.dropped != 0) {
            missed += event.dropped;
            std::cerr << "vlogger: " << capture::counted(event.dropped, "frame is", "frames are") << " missing here"
                      << std::endl;
        } else if (const capture::CandumpFrame frame = frameOf(event.frame);
                   filters.shows(event.frame.channel, frame)) {
            printer.print(event, frame);
            ++shown;
        }
    }
    std::cout.flush();
    if (hasLoggerGone) {
        std::cerr << "vlogger: the virtual logger has gone" << std::endl;
    }
    context.exitCode = hasLoggerGone ? FAILURE : missed != 0 ? LOSS : SUCCESS;
}

} // namespace

void addDump(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("dump", "Show the frames that cross the buses");
    command->add_option("FILTER", options->filters,
                        "can0 | can0,ID:MASK | can0,ID~MASK | can0,#ERRORMASK | any,…; none: everything");
    command->add_option("-n,--count", options->count, "End after so many frames")
        ->transform(wholeNumber(1))
        ->type_name("N");
    addSecondsOption(*command, options->seconds);
    command->add_option("-t,--time", options->time, "Time: a absolute, d since the last frame, z since the first")
        ->check(CLI::IsMember({"a", "d", "z"}))
        ->type_name("a|d|z");
    command->add_flag("-x,--direction", options->hasDirection, "TX: sent by the channel, RX: received");
    CLI::Option* const log = command->add_flag("-L,--log", options->isLog, "Lines of a candump log");
    command->add_flag("--json", options->isJson, "One JSON object per line")->excludes(log);
    command->footer(
        "\nA frame shows once per channel: as sent by one, as received by every other on its bus.\n"
        "A filter matches if identifier & MASK is ID & MASK; with ~ if not. An ID of eight digits is a\n"
        "29-bit identifier. Of several behind one channel one has to match; with j at the end, all.\n"
        "Error frames match #ERRORMASK; on the buses of a virtual logger there are none.\n"
        "\nExamples:\n"
        "  vlogger dump -t a -x\n"
        "  vlogger dump can0 can1,100:7F0,18FEF100:1FFFFF00\n"
        "  vlogger dump can0,123~7FF,456~7FF,j\n"
        "  vlogger dump -L can3 > can3.log\n");
    command->callback([options, &context] { dump(*options, context); });
}

} // namespace tool
