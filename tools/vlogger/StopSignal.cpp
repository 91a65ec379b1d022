#include "StopSignal.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <system_error>

namespace tool {

StopSignal::StopSignal()
{
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    fd.reset(::signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    pthread_sigmask(SIG_BLOCK, &stops, &before);
}

StopSignal::~StopSignal()
{
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

bool StopSignal::wait(int other, int limitMs)
{
    if (come) {
        return true;
    }
    pollfd states[] = {{.fd = fd.get(), .events = POLLIN, .revents = 0},
                       {.fd = other, .events = POLLIN, .revents = 0}};
    if (::poll(states, 2, limitMs) > 0) {
        // Taken out, or it would be delivered once the mask is restored.
        signalfd_siginfo info;
        come = ::read(fd.get(), &info, sizeof info) == sizeof info;
    }
    return come;
}

} // namespace tool
