#include "CaptureInput.h"
#include "ChannelMap.h"
#include "Commands.h"
#include "ExitCode.h"
#include "FrameText.h"
#include "Injector.h"
#include "OptionCheck.h"
#include "Progress.h"
#include "ReplayClock.h"
#include "ReplayPlayer.h"
#include "StopSignal.h"
#include "Usage.h"

#include <capture/Counted.h>

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
    std::string direction;
    bool asChannel = false;
};

/// Shorter waits are not interrupted for a look at the stop signal.
constexpr std::chrono::milliseconds LOOK{100};
/// Longer ones are, so that the terminal shows how far the work has come.
constexpr std::chrono::milliseconds LOOK_MAX{500};
/// Longer pauses are announced.
constexpr std::chrono::seconds PAUSE_MAX{60};
constexpr double US_PER_SECOND = 1e6;

uint64_t microseconds(double seconds)
{
    return static_cast<uint64_t>(std::llround(seconds * US_PER_SECOND));
}

/// The clock of this machine; the stop signal ends its waits.
class SystemClock : public ReplayClock
{
public:
    explicit SystemClock(StopSignal& stopSignal) : stop(stopSignal)
    {
        // The kernel may put off the end of a wait by this; the default would show in every frame's time.
        ::prctl(PR_SET_TIMERSLACK, 1);
    }

    std::chrono::nanoseconds now() override
    {
        timespec time{};
        ::clock_gettime(CLOCK_MONOTONIC, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }

    bool waitUntil(std::chrono::nanoseconds due, const std::function<void()>& look) override
    {
        look();
        tellPause(due);
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

private:
    /// A replay that stands still looks dead. Times of a logger whose clock finds the system time jump by decades.
    void tellPause(std::chrono::nanoseconds due)
    {
        if (const auto pause = std::chrono::duration_cast<std::chrono::seconds>(due - now()); pause > PAUSE_MAX) {
            std::cerr << "vlogger: the next frame is due in " << pause.count() << " s" << std::endl;
        }
    }

    StopSignal& stop;
};

/// Brings the frames of a capture to the buses.
class Replay
{
public:
    Replay(const Options& chosen, const LoggerClient& client, StopSignal& stopSignal)
        : options(chosen), stop(stopSignal), channels(chosen.map, client.board()),
          injector(client, chosen.asChannel), clock(stopSignal),
          player(clock, speedOf(chosen.speed),
                 {.fromUs = microseconds(chosen.from),
                  .toUs = chosen.to ? microseconds(*chosen.to) : std::numeric_limits<uint64_t>::max()},
                 [this](const capture::CandumpFrame& frame) { return send(frame); })
    {
        if (options.to && *options.to < options.from) {
            throw WrongUsage("--to lies before --from");
        }
        if (options.file == "-" && options.loops != 1) {
            throw WrongUsage("--loop needs a file; standard input can be read once only");
        }
    }

    /// Sends the capture as often as it is wanted, or until the user stops it, or to a frame that has no channel.
    void run()
    {
        const auto start = clock.now();
        bool goesOn = true;
        for (uint64_t loop = 0; goesOn && (options.loops == 0 || loop < options.loops); ++loop) {
            const uint64_t sentBefore = player.framesSent();
            // A capture without a frame to send would be read for ever.
            goesOn = playOnce() && player.framesSent() != sentBefore;
        }
        injector.finish();
        elapsed = clock.now() - start;
    }

    int report() const
    {
        const double seconds = std::chrono::duration<double>(elapsed).count();
        const uint64_t sent = player.framesSent();
        if (!obstacle.empty()) {
            std::cerr << "vlogger: " << obstacle << std::endl;
        }
        std::cerr << "vlogger: " << capture::countedFrames(sent) << " sent in " << std::fixed
                  << std::setprecision(3) << seconds << " s";
        if (speedOf(options.speed) == 0 && sent != 0) {
            std::cerr << ", " << static_cast<uint64_t>(static_cast<double>(sent) / seconds) << "/s";
        }
        std::cerr << std::endl;
        reportMistakes();
        const Lateness& lateness = player.lateness();
        if (lateness.count() != 0) {
            std::cerr << "vlogger: lateness mean " << std::setprecision(0) << lateness.meanUs() << " us, worst "
                      << lateness.worstUs() << " us; " << capture::countedFrames(lateness.lateFrames())
                      << " more than 1 ms late" << std::endl;
        }
        if (skipped != 0) {
            std::cerr << "vlogger: " << capture::counted(skipped, "error frame", "error frames") << " skipped"
                      << std::endl;
        }
        return !obstacle.empty() ? FAILURE : unreadable != 0 ? LOSS : SUCCESS;
    }

private:
    /// @return false if it ended before its end
    bool playOnce()
    {
        CaptureInput input(options.file, &stop);
        Progress progress("replaying");
        const bool isPaced = speedOf(options.speed) != 0;
        const auto look = [&] {
            if (isPaced) {
                progress.show(player.framesSent(), input.done());
            } else {
                progress.update(player.framesSent(), [&] { return input.done(); });
            }
        };
        bool isWhole = false;
        try {
            isWhole = player.play([&](capture::CaptureFrame& frame) { return nextWanted(input, frame); }, look);
        } catch (const NoChannel& error) {
            // What was sent before counts, and standard input can be read once only: it is told at the end.
            obstacle = error.what();
        }
        input.remark();
        unreadable += input.unreadable();
        return isWhole && !stop.hasCome();
    }

    /// A frame without a direction is always wanted: a log has none.
    bool nextWanted(CaptureInput& input, capture::CaptureFrame& frame)
    {
        using capture::Direction;
        const Direction unwanted = options.direction == "rx"   ? Direction::SENT
                                   : options.direction == "tx" ? Direction::RECEIVED
                                                               : Direction::UNKNOWN;
        while (input.next(frame)) {
            if (frame.direction == Direction::UNKNOWN || frame.direction != unwanted) {
                hasSent = hasSent || frame.direction == Direction::SENT;
                hasReceived = hasReceived || frame.direction == Direction::RECEIVED;
                return true;
            }
        }
        return false;
    }

    bool send(const capture::CandumpFrame& frame)
    {
        const auto record = recordOf(frame, channels.channelOf(frame.interfaceName));
        if (!record) {
            ++skipped;
            return false;
        }
        injector.send(*record);
        return true;
    }

    /// What the user has most likely not meant: options without an effect, frames that go out more than once.
    void reportMistakes() const
    {
        const auto length = player.lengthUs();
        if (length && player.framesSent() == 0 && skipped == 0 && obstacle.empty() && !stop.hasCome()) {
            std::cerr << "vlogger: no frame lies between --from and --to; the last one is "
                      << static_cast<double>(*length) / US_PER_SECOND << " s behind the beginning" << std::endl;
        }
        if (hasSent && hasReceived) {
            std::cerr
                << "vlogger: the capture has frames as sent and as received; one that two channels of a bus have "
                   "recorded went out twice (--direction rx or tx: once)"
                << std::endl;
        }
        if (player.framesSent() != 0) {
            for (const std::string& name : channels.unusedNames()) {
                std::cerr << "vlogger: --map names " << name << ", of which no frame was sent" << std::endl;
            }
        }
    }

    const Options& options;
    StopSignal& stop;
    ChannelMap channels;
    Injector injector;
    SystemClock clock;
    ReplayPlayer player;
    std::chrono::nanoseconds elapsed{0};
    uint64_t skipped = 0;
    uint64_t unreadable = 0;
    std::string obstacle; ///< what ended it before its end; empty: nothing did
    bool hasSent = false;
    bool hasReceived = false;
};

void replay(const Options& options, Context& context)
{
    StopSignal stop;
    const LoggerClient client(context.socket);
    Replay player(options, client, stop);
    player.run();
    context.exitCode = player.report();
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
    command
        ->add_option("--direction", options->direction,
                     "Only frames that were recorded as received, or as sent; a log has all without a direction")
        ->check(CLI::IsMember({"rx", "tx"}))
        ->type_name("rx|tx");
    command->add_flag(
        "--as-channel", options->asChannel,
        "The channels send, as their applications would; otherwise somebody else on their buses does, "
        "and the channels receive");
    command->footer(
        "\nTimes are counted from the start, so that delays do not add up; a capture that is sent again begins\n"
        "anew with its last frame. An interface without --map is the channel of the number in its name.\n"
        "\nExamples:\n"
        "  vlogger replay trip.log\n"
        "  vlogger replay trip.pcapng --speed max --map can0=3 --map can1=5\n"
        "  vlogger replay trip.pcapng --direction tx --as-channel\n"
        "  vlogger replay trip.log --from 10 --to 12.5 --loop 0\n");
    command->callback([options, &context] { replay(*options, context); });
}

} // namespace tool
