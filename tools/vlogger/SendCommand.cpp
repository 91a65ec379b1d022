#include "Commands.h"
#include "ExitCode.h"
#include "FrameText.h"
#include "Injector.h"
#include "Usage.h"

#include <memory>
#include <vector>

namespace tool {

namespace {

struct Options
{
    std::string channel;
    std::vector<std::string> frames;
    bool asChannel = false;
};

void send(const Options& options, Context& context)
{
    const auto channel = parseChannel(options.channel);
    if (!channel) {
        throw WrongUsage("\"" + options.channel + "\" is no channel (can0 to can255)");
    }
    // All are looked at before the first is sent.
    std::vector<wire::CanRecord> records;
    for (const std::string& text : options.frames) {
        const auto record = recordOf(parseFrame(text), *channel);
        if (!record) {
            throw WrongUsage("frame \"" + text + "\": error frames cannot be sent");
        }
        records.push_back(*record);
    }
    const LoggerClient client(context.socket);
    client.requireChannels(wire::ChannelSet().set(*channel));
    Injector injector(client, options.asChannel);
    for (const wire::CanRecord& record : records) {
        injector.send(record);
    }
    injector.finish();
    context.exitCode = SUCCESS;
}

} // namespace

void addSend(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("send", "Send frames");
    command->add_option("CHANNEL", options->channel, "Channel on whose bus the frames are sent: can0 or 0")
        ->required()
        ->type_name("");
    command->add_option("FRAME", options->frames, "123#DEADBEEF | 1F334455#11.22 | 123##1AABB | 123#R")
        ->required()
        ->type_name("");
    command->add_flag(
        "--as-channel", options->asChannel,
        "The channel sends, as its application would; otherwise somebody else on its bus does, and the "
        "channel receives");
    command->footer("\nExamples:\n"
                    "  vlogger send can1 123#DEADBEEF 1F334455#11.22.33.44\n"
                    "  vlogger send can0 123##1AABBCC          CAN FD: a digit of flags, then the bytes\n"
                    "  vlogger send --as-channel can0 123#R\n");
    command->callback([options, &context] { send(*options, context); });
}

} // namespace tool
