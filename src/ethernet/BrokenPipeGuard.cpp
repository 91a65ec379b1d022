#include "ethernet/BrokenPipeGuard.h"

#include <cerrno>
#include <ctime>

namespace ethernet {

namespace {

sigset_t onlyBrokenPipe()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

} // namespace

bool brokenPipeIsFatal()
{
    struct sigaction action = {};
    return sigaction(SIGPIPE, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
           action.sa_handler == SIG_DFL;
}

BrokenPipeGuard::BrokenPipeGuard(bool isActive) : active(isActive)
{
    if (!active) {
        return;
    }
    const sigset_t set = onlyBrokenPipe();
    active = pthread_sigmask(SIG_BLOCK, &set, &maskBefore) == 0;
    // Only a thread that had the signal blocked can have one waiting.
    if (active && sigismember(&maskBefore, SIGPIPE) == 1) {
        sigset_t waiting;
        waitingBefore = sigpending(&waiting) == 0 && sigismember(&waiting, SIGPIPE) == 1;
    }
}

BrokenPipeGuard::~BrokenPipeGuard()
{
    if (!active) {
        return;
    }
    const int savedErrno = errno;
    if (raised && !waitingBefore) {
        // The kernel has queued it for this thread before the write returned, so there is nothing to wait for.
        const sigset_t set = onlyBrokenPipe();
        const timespec now = {};
        while (sigtimedwait(&set, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    errno = savedErrno;
}

} // namespace ethernet
