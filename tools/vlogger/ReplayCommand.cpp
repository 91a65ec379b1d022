#include "CaptureInput.h"
#include "ChannelMap.h"
#include "Commands.h"
#include "ExitCode.h"
#include "FrameText.h"
#include "Injector.h"
#include "OptionCheck.h"
#include "Progress.h"
#include "ReplaySchedule.h"
#include "StopSignal.h"
#include "Usage.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cmath>
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
    std::optional<double> to;
    std::vector<std::string> map;
    bool asChannel = false;
};

/// Shorter waits are not interrupted for a look at the stop signal.
constexpr std::chrono::milliseconds LOOK{100};
/// Longer ones are, so that the terminal shows how far the work has come.
constexpr std::chrono::milliseconds LOOK_MAX{500};
constexpr double US_PER_SECOND = 1e6;

std::chrono::nanoseconds now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

uint64_t microseconds(double seconds)
{
    return static_cast<uint64_t>(std::llround(seconds * US_PER_SECOND));
}

class Replay
{
public:
    Replay(const Options& chosen, const LoggerClient& client)
        : options(chosen), speed(speedOf(chosen.speed)), fromUs(microseconds(chosen.from)),
          toUs(chosen.to ? microseconds(*chosen.to) : std::numeric_limits<uint64_t>::max()), channels(chosen.map),
          injector(client, chosen.asChannel)
    {
        if (options.to && *options.to < options.from) {
            throw WrongUsage("--to lies before --from");
        }
        if (options.file == "-" && options.loops != 1) {
            throw WrongUsage("--loop needs a file; standard input can be read once only");
        }
        // The kernel may put off the end of a wait by this; the default would show in every frame's time.
        ::prctl(PR_SET_TIMERSLACK, 1);
    }

    /// Sends the capture once.
    /// @return false if the user has stopped it
    bool playOnce(StopSignal& stop)
    {
        CaptureInput input(options.file, &stop);
        const bool isWhole = play(input, stop);
        input.remark();
        unreadable += input.unreadable();
        return isWhole;
    }

    uint64_t framesSent() const { return sent; }

    void finish() { injector.finish(); }

    int report(double seconds) const
    {
        std::cerr << "vlogger: " << sent << " frames sent in " << std::fixed << std::setprecision(3) << seconds
                  << " s";
        if (speed == 0 && sent != 0) {
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
    bool play(CaptureInput& input, StopSignal& stop)
    {
        Progress progress("replaying");
        const ReplaySchedule schedule(now(), speed);
        std::optional<uint64_t> beginUs;
        capture::CaptureFrame frame;
        while (input.next(frame)) {
            beginUs = beginUs.value_or(frame.frame.timestampUs);
            const uint64_t placeUs = frame.frame.timestampUs - std::min(*beginUs, frame.frame.timestampUs);
            if (placeUs < fromUs || placeUs > toUs) {
                continue;
            }
            if (!schedule.isPaced()) {
                send(frame.frame);
                progress.update(sent, input.done());
                continue;
            }
            const auto due = schedule.dueAt(placeUs - fromUs);
            if (!waitUntil(due, stop, [&] { progress.show(sent, input.done()); })) {
                return false;
            }
            send(frame.frame);
            lateness.add(now() - due);
        }
        return !stop.hasCome();
    }

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

    /// @param look  called at the beginning and now and then
    /// @return false if the user has stopped it
    template <typename Look>
    static bool waitUntil(std::chrono::nanoseconds due, StopSignal& stop, Look look)
    {
        look();
        while (due - now() > LOOK) {
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(due - now() - LOOK / 2);
            if (stop.wait(-1, static_cast<int>(std::min(wait, LOOK_MAX).count()))) {
                return false;
            }
            look();
        }
        if (stop.hasCome()) {
            return false;
        }
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(due);
        const timespec time{.tv_sec = seconds.count(), .tv_nsec = (due - seconds).count()};
        while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
        }
        return true;
    }

    const Options& options;
    const double speed;
    const uint64_t fromUs;
    const uint64_t toUs;
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
    bool goesOn = true;
    for (uint64_t loop = 0; goesOn && (options.loops == 0 || loop < options.loops); ++loop) {
        const uint64_t sentBefore = player.framesSent();
        // A capture without a frame to send would be read for ever.
        goesOn = player.playOnce(stop) && player.framesSent() != sentBefore;
    }
    player.finish();
    context.exitCode = player.report(std::chrono::duration<double>(now() - start).count());
}

} // namespace

void addReplay(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("replay", "Send the frames of a capture at their times");
    command->add_option("FILE", options->file, "Capture to send, candump log or pcapng; -: standard input")
        ->required()
        ->type_name("");
    command
        ->add_option("--speed", options->speed,
                     "Factor, 0.000001 to 1000000; max: as fast as the readers take them")
        ->check(speedFactor())
        ->type_name("X|max")
        ->capture_default_str();
    command->add_option("--loop", options->loops, "So many times; 0: until Ctrl-C")
        ->transform(wholeNumber(0))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--from", options->from, "Seconds behind the beginning to start at")
        ->check(seconds(0, SECONDS_MAX))
        ->type_name("S");
    command->add_option("--to", options->to, "Seconds behind the beginning to end at")
        ->check(seconds(0, SECONDS_MAX))
        ->type_name("S");
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
