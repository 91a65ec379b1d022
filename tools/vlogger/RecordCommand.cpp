#include "Commands.h"
#include "ExitCode.h"
#include "FilterSet.h"
#include "FormatOption.h"
#include "FrameText.h"
#include "MonitorReader.h"
#include "OptionCheck.h"
#include "Progress.h"
#include "StandardStreams.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <limits>
#include <memory>
#include <system_error>

namespace tool {

namespace {

constexpr uint64_t NO_LIMIT = std::numeric_limits<uint64_t>::max();

struct Options
{
    std::string file;
    std::vector<std::string> filters;
    std::string format;
    uint64_t count = NO_LIMIT;
    double seconds = 0;
};

/// How often a recording that has nothing to do looks at the time.
constexpr int LOOK_MS = 200;

class Recorder
{
public:
    Recorder(const Options& chosen, const LoggerClient& client)
        : options(chosen), filters(chosen.filters), monitor(client, filters.channels()),
          file(chosen.file, chosenFormat(chosen.format, chosen.file), "vlogger " VLOGGER_VERSION)
    {
        std::cerr << "vlogger: recording to " << options.file << std::endl;
    }

    /// @return false if the virtual logger has gone
    bool record(StopSignal& stop)
    {
        Progress progress("recording");
        while (doneSoFar() < 1) {
            wire::MonitorEvent event;
            const auto result = monitor.next(event, stop, LOOK_MS);
            progress.show(taken, hasEnd() ? doneSoFar() : -1);
            if (result == MonitorReader::Result::EVENT) {
                take(event);
            } else if (result == MonitorReader::Result::QUIET) {
                // After each read, however busy the buses are: a kill loses no more than the last one brought.
                file.flush();
            } else {
                return result == MonitorReader::Result::STOPPED;
            }
        }
        return true;
    }

    void finish() { file.finish(); }

    uint64_t framesWritten() const { return file.framesWritten(); }
    uint64_t framesMissed() const { return missed; }

private:
    using Clock = std::chrono::steady_clock;

    bool hasEnd() const { return options.seconds > 0 || options.count != NO_LIMIT; }

    /// 0 to 1, by what ends first.
    double doneSoFar() const
    {
        if (taken >= options.count) {
            return 1;
        }
        const double byCount = static_cast<double>(taken) / static_cast<double>(options.count);
        const std::chrono::duration<double> passed = Clock::now() - start;
        return std::clamp(options.seconds > 0 ? passed.count() / options.seconds : 0, byCount, 1.0);
    }

    void take(const wire::MonitorEvent& event)
    {
        if (event.dropped != 0) {
            missed += event.dropped;
            missedBefore += event.dropped;
            return;
        }
        capture::CaptureFrame frame;
        frame.frame = frameOf(event.frame);
        if (!filters.shows(event.frame.channel, frame.frame)) {
            return;
        }
        frame.direction = event.isSent ? capture::Direction::SENT : capture::Direction::RECEIVED;
        frame.droppedBefore = std::exchange(missedBefore, 0);
        file.write(frame);
        ++taken;
    }

    const Options& options;
    const Clock::time_point start = Clock::now();
    FilterSet filters;
    MonitorReader monitor;
    capture::CaptureFile file;
    uint64_t taken = 0;
    uint64_t missed = 0;
    uint64_t missedBefore = 0; ///< since the last frame
};

void record(const Options& options, Context& context)
{
    StopSignal stop;
    Recorder recorder(options, LoggerClient(context.socket));
    bool isWhole = false;
    try {
        isWhole = recorder.record(stop);
        recorder.finish();
    } catch (const std::system_error& error) {
        if (isReaderGone(options.file, error)) {
            return;
        }
        std::cerr << "vlogger: recording ends after " << recorder.framesWritten()
                  << " frames, which can be read: " << error.what() << std::endl;
        context.exitCode = FAILURE;
        return;
    }
    std::cerr << "vlogger: " << recorder.framesWritten() << " frames recorded";
    if (recorder.framesMissed() != 0) {
        std::cerr << ", " << recorder.framesMissed() << " missed";
    }
    std::cerr << (isWhole ? "" : "; the virtual logger has gone") << std::endl;
    context.exitCode = !isWhole ? FAILURE : recorder.framesMissed() != 0 ? LOSS : SUCCESS;
}

} // namespace

void addRecord(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("record", "Record the frames that cross the buses");
    command
        ->add_option("FILE", options->file,
                     "Capture to write; .pcapng: pcapng, everything else: log; -: standard output")
        ->required()
        ->type_name("");
    command->add_option("FILTER", options->filters, "As for dump; none: everything");
    addFormatOption(*command, options->format);
    command->add_option("-n,--count", options->count, "End after so many frames")
        ->transform(wholeNumber(1))
        ->type_name("N");
    command->add_option("--seconds", options->seconds, "End after so many seconds")
        ->check(secondsAboveZero())
        ->type_name("S");
    command->footer("\nEnds with Ctrl-C. The file can be read at any time and after any end.\n"
                    "\nExamples:\n"
                    "  vlogger record trip.pcapng\n"
                    "  vlogger record trip.log can0 can2 --seconds 60\n"
                    "  vlogger record --format pcapng - | wireshark -k -i -\n");
    command->callback([options, &context] { record(*options, context); });
}

} // namespace tool
