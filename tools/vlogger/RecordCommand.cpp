#include "Commands.h"
#include "EarlyEnd.h"
#include "ExitCode.h"
#include "FormatOption.h"
#include "OptionCheck.h"
#include "Recording.h"
#include "StandardStreams.h"

#include <capture/Counted.h>

#include <iostream>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>

namespace tool {

namespace {

struct Options
{
    std::string file;
    std::vector<std::string> filters;
    std::string format;
    uint64_t count = Recording::End().frames;
    double seconds = 0;
};

void record(const Options& options, Context& context)
{
    const bool isPiped = options.file == "-";
    if (isPiped) {
        requireStandardOutput();
    }
    StopSignal stop;
    const FilterSet filters(options.filters);
    MonitorReader monitor(LoggerClient(context.socket), filters);
    capture::CaptureFile file(options.file, chosenFormat(options.format, options.file), "vlogger " VLOGGER_VERSION);
    std::cerr << "vlogger: recording to " << options.file << std::endl;
    Recording recording(filters, std::move(monitor), std::move(file),
                        {.frames = options.count,
                         .time = TimeLimit(options.seconds),
                         .isReaderGone = isPiped ? hasReaderGone : nullptr});
    bool isWhole = false;
    try {
        isWhole = recording.run(stop);
        recording.finish();
    } catch (const std::system_error& error) {
        if (isReaderGone(options.file, error)) {
            return;
        }
        std::cerr << earlyEnd("recording", recording.framesWritten(), error) << std::endl;
        context.exitCode = FAILURE;
        return;
    }
    std::cerr << "vlogger: " << capture::countedFrames(recording.framesWritten()) << " recorded";
    if (recording.framesMissed() != 0) {
        std::cerr << ", " << recording.framesMissed() << " missed";
    }
    std::cerr << (isWhole ? "" : "; the virtual logger has gone") << std::endl;
    context.exitCode = !isWhole ? FAILURE : recording.framesMissed() != 0 ? LOSS : SUCCESS;
}

} // namespace

void addRecord(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("record", "Record the frames that cross the buses");
    command
        ->add_option("FILE", options->file,
                     "Capture to write, in place of an older one; .pcapng: pcapng, everything else: log; -: "
                     "standard output")
        ->required()
        ->check(notEmpty())
        ->type_name("");
    command->add_option("FILTER", options->filters, "As for dump; none: everything");
    addFormatOption(*command, options->format);
    command->add_option("-n,--count", options->count, "End after so many frames")
        ->transform(wholeNumber(1))
        ->type_name("N");
    addSecondsOption(*command, options->seconds);
    command->footer("\nEnds with Ctrl-C. The file can be read at any time and after any end.\n"
                    "\nExamples:\n"
                    "  vlogger record trip.pcapng\n"
                    "  vlogger record trip.log can0 can2 --seconds 60\n"
                    "  vlogger record --format pcapng - | wireshark -k -i -\n");
    command->callback([options, &context] { record(*options, context); });
}

} // namespace tool
