#include "CaptureInput.h"
#include "ChannelMap.h"
#include "Commands.h"
#include "ExitCode.h"
#include "FrameText.h"
#include "Injector.h"
#include "Progress.h"
#include "ReplaySchedule.h"
#include "StopSignal.h"
#include "Usage.h"

#include <sys/prctl.h>

#include <ctime>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>

namespace tool {

namespace {

struct Options
{
    std::string file;
    std::string speed = "1";
    uint64_t loops = 1;
    double from = 0;
    double to = std::numeric_limits<double>::infinity();
    std::vector<std::string> map;
    bool asChannel = false;
};

/// Shorter waits are not interrupted for a look at the stop signal.
constexpr std::chrono::milliseconds LOOK{100};

std::chrono::nanoseconds now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

double speedOf(const std::string& text)
{
    if (text == "max") {
        return 0;
    }
    size_t used = 0;
    double speed = 0;
    try {
        speed = std::stod(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != text.size() || !(speed > 0) || speed > 1e6) {
        throw WrongUsage("speed \"" + text + "\": it is neither a number above 0 nor max");
    }
    return speed;
}

class Replay
{
public:
    Replay(const Options& chosen, const LoggerClient& client)
        : options(chosen), speed(speedOf(chosen.speed)), channels(chosen.map), injector(client, chosen.asChannel)
    {
        if (!(options.from >= 0) || !(options.to >= options.from)) {
            throw WrongUsage("--from and --to are seconds behind the beginning of the capture, in this order");
        }
        // The kernel may put off the end of a wait by this; the default would show in every frame's time.
        ::prctl(PR_SET_TIMERSLACK, 1);
    }

    /// Sends the capture once.
    /// @return false if the user has stopped it
    bool playOnce(StopSignal& stop)
    {
        CaptureInput input(options.file);
        Progress progress("replaying");
        const ReplaySchedule schedule(now(), speed);
        std::optional<uint64_t> beginUs;
        capture::CaptureFrame frame;
        while (input.next(frame)) {
            beginUs = beginUs.value_or(frame.frame.timestampUs);
            const uint64_t placeUs = frame.frame.timestampUs - std::min(*beginUs, frame.frame.timestampUs);
            const double place = static_cast<double>(placeUs) / 1e6;
            if (place < options.from || place > options.to) {
                continue;
            }
            const auto due = schedule.dueAt(placeUs - static_cast<uint64_t>(options.from * 1e6));
            if ((schedule.isPaced() && !waitUntil(due, stop)) || ((sent & 0x3F) == 0 && stop.hasCome())) {
                return false;
            }
            send(frame.frame);
            if (schedule.isPaced()) {
                lateness.add(now() - due);
            }
            progress.update(sent, input.done());
        }
        input.remark();
        unreadable += input.unreadable();
        return true;
    }

    void finish() { injector.finish(); }

    int report(double seconds) const
    {
        std::cerr << "vlogger: " << sent << " frames sent in " << std::fixed << std::setprecision(3) << seconds
                  << " s";
        if (speed == 0 && seconds > 0) {
            std::cerr << ", " << static_cast<uint64_t>(static_cast<double>(sent) / seconds) << "/s";
        }
        std::cerr << std::endl;
        if (lateness.count() != 0) {
            std::cerr << "vlogger: lateness mean " << std::setprecision(0) << lateness.meanUs() << " us, worst "
                      << lateness.worstUs() << " us; " << lateness.lateFrames() << " frames more than 1 ms late"
                      << std::endl;
        }
        if (skipped != 0) {
            std::cerr << "vlogger: " << skipped << " error frames skipped" << std::endl;
        }
        return unreadable == 0 ? SUCCESS : LOSS;
    }

private:
    void send(const capture::CandumpFrame& frame)
    {
        const auto record = recordOf(frame, channels.channelOf(frame.interfaceName));
        if (!record) {
            ++skipped;
            return;
        }
        injector.send(*record);
        ++sent;
    }

    /// @return false if the user has stopped it
    static bool waitUntil(std::chrono::nanoseconds due, StopSignal& stop)
    {
        while (due - now() > LOOK) {
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(due - now() - LOOK / 2);
            if (stop.wait(-1, static_cast<int>(std::min<int64_t>(wait.count(), 1000)))) {
                return false;
            }
        }
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(due);
        const timespec time{.tv_sec = seconds.count(), .tv_nsec = (due - seconds).count()};
        while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
        }
        return true;
    }

    const Options& options;
    const double speed;
    ChannelMap channels;
    Injector injector;
    Lateness lateness;
    uint64_t sent = 0;
    uint64_t skipped = 0;
    uint64_t unreadable = 0;
};

void replay(const Options& options, Context& context)
{
    StopSignal stop;
    const LoggerClient client(context.socket);
    Replay player(options, client);
    const auto start = now();
    for (uint64_t loop = 0; options.loops == 0 || loop < options.loops; ++loop) {
        if (!player.playOnce(stop)) {
            break;
        }
    }
    player.finish();
    context.exitCode = player.report(std::chrono::duration<double>(now() - start).count());
}

} // namespace

void addReplay(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("replay", "Send the frames of a capture at their times");
    command->add_option("FILE", options->file, "Capture to send, candump log or pcapng")->required()->type_name("");
    command->add_option("--speed", options->speed, "Factor; max: as fast as the readers take them")
        ->type_name("X|max")
        ->capture_default_str();
    command->add_option("--loop", options->loops, "So many times; 0: until Ctrl-C")
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--from", options->from, "Seconds behind the beginning to start at")->type_name("S");
    command->add_option("--to", options->to, "Seconds behind the beginning to end at")->type_name("S");
    command->add_option("--map", options->map, "Interface of the capture = channel, any number of times")
        ->type_name("can0=3")
        ->allow_extra_args(false);
    command->add_flag(
        "--as-channel", options->asChannel,
        "The channels send, as their applications would; otherwise somebody else on their buses does, "
        "and the channels receive");
    command->footer(
        "\nTimes are counted from the start, so that delays do not add up. An interface without --map is\n"
        "the channel of the number in its name.\n"
        "\nExamples:\n"
        "  vlogger replay trip.log\n"
        "  vlogger replay trip.pcapng --speed max --map can0=3 --map can1=5\n"
        "  vlogger replay trip.log --from 10 --to 12.5 --loop 0\n");
    command->callback([options, &context] { replay(*options, context); });
}

} // namespace tool
