#include "CaptureInput.h"
#include "Commands.h"
#include "EarlyEnd.h"
#include "ExitCode.h"
#include "FormatOption.h"
#include "Progress.h"
#include "StandardStreams.h"
#include "Usage.h"

#include <capture/CaptureError.h>
#include <capture/Counted.h>

#include <iostream>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tool {

namespace {

struct Options
{
    std::string input;
    std::string output;
    std::string format;
};

bool findStatus(const std::string& path, int standardStream, struct stat& status)
{
    return (path == "-" ? ::fstat(standardStream, &status) : ::stat(path.c_str(), &status)) == 0;
}

/// Whether what is written would come into what is read. A terminal or a socket may be both.
bool isSameFile(const std::string& input, const std::string& output)
{
    struct stat read = {};
    struct stat written = {};
    return findStatus(input, STDIN_FILENO, read) && findStatus(output, STDOUT_FILENO, written) &&
           S_ISREG(read.st_mode) && read.st_dev == written.st_dev && read.st_ino == written.st_ino;
}

void convert(const Options& options, Context& context)
{
    if (isSameFile(options.input, options.output)) {
        throw WrongUsage(options.output == "-"
                             ? "standard output goes into the file that is read; that would never end"
                             : "\"" + options.output + "\" is the file that is read; it would be lost");
    }
    const capture::Format format = chosenFormat(options.format, options.output);
    CaptureInput input(options.input);
    capture::CaptureFrame frame;
    bool hasFrame = input.next(frame);
    if (!hasFrame && input.isUseless()) {
        // Whatever the output file holds is worth more than nothing.
        input.remark();
        context.exitCode = FAILURE;
        return;
    }
    capture::CaptureFile output(options.output, format, "vlogger " VLOGGER_VERSION);
    uint64_t frames = 0;
    uint64_t refused = 0;
    try {
        Progress progress("converting");
        for (; hasFrame; hasFrame = input.next(frame)) {
            try {
                output.write(frame);
            } catch (const capture::CaptureError& error) {
                ++refused;
            }
            ++frames;
            progress.update(frames, [&] { return input.done(); });
        }
        output.finish();
    } catch (const std::system_error& error) {
        if (isReaderGone(options.output, error)) {
            return;
        }
        std::cerr << earlyEnd("converting", output.framesWritten(), error) << std::endl;
        context.exitCode = FAILURE;
        return;
    }
    input.remark();
    if (refused != 0) {
        std::cerr << "vlogger: " << capture::counted(refused, "frame has", "frames have")
                  << " a time that the format cannot hold" << std::endl;
    }
    for (const std::string& loss : output.losses()) {
        std::cerr << "vlogger: " << loss << std::endl;
    }
    std::cerr << "vlogger: " << capture::countedFrames(output.framesWritten()) << " converted" << std::endl;
    context.exitCode = input.unreadable() + refused == 0 ? SUCCESS : LOSS;
}

} // namespace

void addConvert(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("convert", "Change the format of a capture");
    command->add_option("IN", options->input, "Capture to read, candump log or pcapng; -: standard input")
        ->required()
        ->type_name("");
    command->add_option("OUT", options->output, "Capture to write; .pcapng: pcapng; -: a log to standard output")
        ->required()
        ->type_name("");
    addFormatOption(*command, options->format);
    command->footer(
        "\nWhat cannot be read is skipped, said and counted; the exit code is 3 then, and 1 if nothing can be\n"
        "read: OUT stays as it is then. A candump log has no\n"
        "place for directions, nanoseconds and counts of lost frames; what is left out is said.\n"
        "What candump shows on a terminal is read as well, times of -t a included.\n"
        "\nExamples:\n"
        "  vlogger convert trip.log trip.pcapng\n"
        "  vlogger convert trip.pcapng - | head\n");
    command->callback([options, &context] { convert(*options, context); });
}

} // namespace tool
