#include "CaptureInput.h"
#include "Commands.h"
#include "ExitCode.h"
#include "FormatOption.h"
#include "Progress.h"
#include "StandardStreams.h"
#include "Usage.h"

#include <capture/CaptureError.h>

#include <filesystem>
#include <iostream>
#include <memory>

namespace tool {

namespace {

struct Options
{
    std::string input;
    std::string output;
    std::string format;
};

void convert(const Options& options, Context& context)
{
    std::error_code unknown;
    if (std::filesystem::equivalent(options.input, options.output, unknown)) {
        throw WrongUsage("\"" + options.output + "\" is the file that is read; it would be lost");
    }
    const capture::Format format = chosenFormat(options.format, options.output);
    CaptureInput input(options.input);
    capture::CaptureFrame frame;
    bool hasFrame = input.next(frame);
    if (!hasFrame && input.unreadable() != 0) {
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
        throw;
    }
    input.remark();
    if (refused != 0) {
        std::cerr << "vlogger: " << refused << " frames have a time that the format cannot hold" << std::endl;
    }
    for (const std::string& loss : output.losses()) {
        std::cerr << "vlogger: " << loss << std::endl;
    }
    std::cerr << "vlogger: " << output.framesWritten() << " frames converted" << std::endl;
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
