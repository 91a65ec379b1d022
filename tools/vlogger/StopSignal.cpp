#include "StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <unistd.h>

namespace tool {

namespace {

// A handler reaches nothing but globals.
std::atomic<int> event{-1};
std::atomic<bool> come{false};
std::atomic<bool> doesSecondKill{true};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

void setAction(void (*handler)(int), int flags)
{
    struct sigaction action
    {
    };
    action.sa_handler = handler;
    // Nothing that is under way fails; whoever waits for a signal polls.
    action.sa_flags = SA_RESTART | flags;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

void take(int)
{
    const int reason = errno;
    if (doesSecondKill) {
        setAction(SIG_DFL, 0);
    }
    come = true;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(event, &one, sizeof one);
    errno = reason;
}

} // namespace

StopSignal::StopSignal(Second second) : fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    event = fd.get();
    come = false;
    doesSecondKill = second == Second::KILLS;
    ::sigaction(SIGINT, nullptr, &interruptBefore);
    ::sigaction(SIGTERM, nullptr, &terminateBefore);
    // The system itself takes the handler away at the first signal: a second one kills even if the handler is late.
    setAction(take, doesSecondKill ? static_cast<int>(SA_RESETHAND) : 0);
}

StopSignal::~StopSignal()
{
    restore();
}

bool StopSignal::wait(int other, int limitMs)
{
    if (!hasCome()) {
        pollfd states[] = {{.fd = fd.get(), .events = POLLIN, .revents = 0},
                           {.fd = other, .events = POLLIN, .revents = 0}};
        while (::poll(states, 2, limitMs) < 0 && errno == EINTR && !hasCome()) {
        }
    }
    return hasCome();
}

bool StopSignal::hasCome() const
{
    return come;
}

void StopSignal::restore() const
{
    ::sigaction(SIGINT, &interruptBefore, nullptr);
    ::sigaction(SIGTERM, &terminateBefore, nullptr);
}

} // namespace tool
