#include "StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <optional>
#include <system_error>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::chrono::milliseconds TOGETHER{500};

sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    struct sigaction hangUp
    {
    };
    // Under nohup a terminal that goes is none of our business.
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) {
        sigaddset(&set, SIGHUP);
    }
    return set;
}

/// Ends the process as the signal would have done.
void dieOf(int number)
{
    std::signal(number, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    std::raise(number);
}

} // namespace

StopSignal::Flag::Flag() : fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void StopSignal::Flag::raise()
{
    hasCome = true;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd.get(), &one, sizeof one);
}

bool StopSignal::Flag::wait(int other, int limitMs) const
{
    if (!hasCome) {
        pollfd states[] = {{.fd = fd.get(), .events = POLLIN, .revents = 0},
                           {.fd = other, .events = POLLIN, .revents = 0}};
        while (::poll(states, 2, limitMs) < 0 && errno == EINTR) {
        }
    }
    return hasCome;
}

StopSignal::StopSignal(Second secondOne) : atSecond(secondOne)
{
    const sigset_t set = stopSignals();
    signals.reset(::signalfd(-1, &set, SFD_CLOEXEC));
    if (!signals) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    // A thread takes them: the command may be inside a write that nothing ends, and nothing under way is interrupted.
    pthread_sigmask(SIG_BLOCK, &set, &maskBefore);
    listener = std::thread([this] { listen(); });
}

StopSignal::~StopSignal()
{
    end.raise();
    listener.join();
    // The rest of a stopped command is short, and another signal that still comes must not spoil its exit code.
    if (!hasCome()) {
        restore();
    }
}

void StopSignal::listen()
{
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> firstTime;
    while (!end.wait(signals.get(), -1)) {
        signalfd_siginfo taken{};
        if (::read(signals.get(), &taken, sizeof taken) != sizeof taken) {
            continue;
        }
        if (!firstTime) {
            firstTime = Clock::now();
            first.raise();
        } else if (Clock::now() - *firstTime < TOGETHER) {
            continue;
        } else if (atSecond == Second::KILLS) {
            dieOf(static_cast<int>(taken.ssi_signo));
        } else {
            second.raise();
        }
    }
}

bool StopSignal::wait(int other, int limitMs)
{
    return first.wait(other, limitMs);
}

bool StopSignal::waitForSecond(int other)
{
    return second.wait(other, -1);
}

void StopSignal::restore() const
{
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

} // namespace tool
