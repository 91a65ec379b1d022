#include "Commands.h"
#include "ExitCode.h"
#include "FrameText.h"
#include "StopSignal.h"
#include "TemporarySocket.h"

#include <bench/Bench.h>
#include <capture/Counted.h>
#include <config/ConfigurationReader.h>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

constexpr std::chrono::milliseconds SETTLE_LIMIT{1000};

struct Options
{
    std::string configuration;
    std::vector<std::string> program;
    bool isQuiet = false;
    bool isJson = false;
};

/// In the child: becomes the program. Returns only if that fails.
int execute(const std::vector<std::string>& program, const StopSignal& stop, pid_t parent)
{
    std::vector<char*> arguments;
    arguments.reserve(program.size() + 1);
    for (const std::string& argument : program) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
    // Killed with SIGKILL we cannot end the program; the system does then. It goes by the thread that forks, which is
    // the main one and lasts as long as the process.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
        ::raise(SIGTERM);
    }
    stop.restore();
    ::execvp(arguments.front(), arguments.data());
    const int reason = errno;
    const std::string line = "vlogger: " + program.front() + ": " + std::strerror(reason) + "\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    return reason == ENOENT ? NOT_FOUND : CANNOT_EXECUTE;
}

/// Waits for the program and passes on what would stop us.
int exitCodeOf(pid_t child, StopSignal& stop)
{
    const wire::FileDescriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    if (handle && stop.wait(handle.get(), -1)) {
        // A signal of the terminal has reached the program too; a second one does no harm.
        ::kill(child, SIGTERM);
        if (stop.waitForSecond(handle.get())) {
            ::kill(child, SIGKILL);
        }
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? KILLED_BY_SIGNAL + WTERMSIG(status) : WEXITSTATUS(status);
}

/// What crossed each channel, on standard error: standard output is the program's.
void summarise(const vlogger::VirtualLogger& logger, bool isJson)
{
    std::ostringstream text;
    const std::vector<vlogger::ChannelStatistics> channels = logger.channelStatistics();
    if (isJson) {
        text << R"({"channels":[)";
        for (const vlogger::ChannelStatistics& one : channels) {
            text << (&one == channels.data() ? "" : ",") << R"({"channel":)" << int{one.channel} << R"(,"sent":)"
                 << one.sent << R"(,"received":)" << one.received << "}";
        }
        text << R"(],"dropped":)" << logger.statistics().framesDropped << "}\n";
    } else {
        text << "vlogger: channel        sent    received\n";
        for (const vlogger::ChannelStatistics& one : channels) {
            text << "vlogger: " << std::left << std::setw(7) << nameOfChannel(one.channel) << std::right
                 << std::setw(12) << one.sent << std::setw(12) << one.received << "\n";
        }
        if (channels.empty()) {
            text << "vlogger: nothing crossed any channel\n";
        }
        if (const uint64_t dropped = logger.statistics().framesDropped; dropped != 0) {
            text << "vlogger: "
                 << capture::counted(dropped, "frame was dropped because its", "frames were dropped because their")
                 << " reader took nothing\n";
        }
    }
    std::cerr << text.str() << std::flush;
}

int run(const Options& options, const std::string& givenSocket)
{
    StopSignal stop(StopSignal::Second::IS_TOLD);
    const config::Configuration configuration = options.configuration.empty()
                                                    ? config::Configuration()
                                                    : config::readConfigurationFile(options.configuration);
    std::optional<TemporarySocket> temporary;
    if (givenSocket.empty()) {
        temporary.emplace();
    }
    const std::string socket = temporary ? temporary->path() : givenSocket;
    vlogger::Bench bench(configuration, socket);
    ::setenv("VLOGGER", socket.c_str(), 1);
    // A plain child that we outlive: with its parent gone the program would talk to nobody.
    const pid_t self = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        ::_exit(execute(options.program, stop, self));
    }
    const int exitCode = exitCodeOf(child, stop);
    if (!options.isQuiet) {
        // What the program wrote last counts too. A child of its own may go on writing; it is not waited for long.
        bench.logger().settle(SETTLE_LIMIT);
        summarise(bench.logger(), options.isJson);
    }
    return exitCode;
}

} // namespace

void addRun(CLI::App& app, Context& context)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("run", "Run a program with a virtual logger of its own");
    command->add_option("--config", options->configuration, "Configuration in TOML; see docs/configuration.md")
        ->type_name("FILE");
    command->add_flag("-q,--quiet", options->isQuiet, "No summary");
    command->add_flag("--json", options->isJson, "The summary as JSON");
    command->add_option("PROGRAM", options->program, "The program and its arguments, behind --")
        ->required()
        ->type_name("ARGS");
    command->positionals_at_end();
    command->footer("\nEnds like its program. What crossed each channel is written to standard error.\n"
                    "Ctrl-C or SIGTERM ends the program with SIGTERM; a second one kills it.\n"
                    "\nExamples:\n"
                    "  vlogger run -- ./my_program --fast\n"
                    "  vlogger run --config bench.toml -- ./my_program\n");
    command->callback([options, &context] {
        try {
            context.exitCode = run(*options, context.socket);
        } catch (const std::exception& error) {
            std::cerr << "vlogger: " << error.what() << std::endl;
            context.exitCode = CANNOT_SERVE;
        }
    });
}

} // namespace tool
