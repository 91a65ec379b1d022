#include <support/PselectSpy.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include <sys/select.h>

extern "C" int __real_pselect(int descriptors, fd_set* readSet, fd_set* writeSet, fd_set* errorSet,
                              const timespec* timeout, const sigset_t* mask);
extern "C" int __wrap_pselect(int descriptors, fd_set* readSet, fd_set* writeSet, fd_set* errorSet,
                              const timespec* timeout, const sigset_t* mask);

namespace pselectspy {

namespace {

std::mutex mutex;
std::condition_variable changed;
unsigned callCount = 0;
Call latest;
int failure = 0;
unsigned failures = 0;

} // namespace

void failNext(int errorNumber, unsigned count)
{
    const std::lock_guard lock(mutex);
    failure = errorNumber;
    failures = count;
}

unsigned calls()
{
    const std::lock_guard lock(mutex);
    return callCount;
}

bool waitForTotal(unsigned total)
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(30), [total] { return callCount >= total; });
}

bool waitForMore(unsigned more)
{
    return waitForTotal(calls() + more);
}

Call last()
{
    const std::lock_guard lock(mutex);
    return latest;
}

} // namespace pselectspy

int __wrap_pselect(int descriptors, fd_set* readSet, fd_set* writeSet, fd_set* errorSet, const timespec* timeout,
                   const sigset_t* mask)
{
    using namespace pselectspy;
    {
        const std::lock_guard lock(mutex);
        latest = {.descriptors = descriptors,
                  .readOnly = writeSet == nullptr && errorSet == nullptr,
                  .withSignalMask = mask != nullptr,
                  .timeoutNs = timeout == nullptr ? -1 : timeout->tv_sec * 1'000'000'000 + timeout->tv_nsec};
        for (int fd = 0; readSet != nullptr && fd < FD_SETSIZE; ++fd) {
            if (FD_ISSET(fd, readSet)) {
                latest.watched.push_back(fd);
            }
        }
        ++callCount;
        changed.notify_all();
        if (failures > 0) {
            --failures;
            errno = failure;
            return -1;
        }
    }
    return __real_pselect(descriptors, readSet, writeSet, errorSet, timeout, mask);
}
