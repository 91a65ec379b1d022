#include "PselectWatch.h"

#include <condition_variable>
#include <mutex>

#include <sys/select.h>

namespace {

std::mutex mutex;
std::condition_variable changed;
size_t readyCount = 0;
size_t timeoutCount = 0;
size_t begunCount = 0;
bool holding = false;
bool isHeld = false;

bool awaitMore(const size_t& counter, size_t count, std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex);
    const size_t wanted = counter + count;
    return changed.wait_for(lock, limit, [&] { return counter >= wanted; });
}

} // namespace

extern "C" {

int __real_pselect(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*);
int __wrap_pselect(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*);

int __wrap_pselect(int count, fd_set* readSet, fd_set* writeSet, fd_set* errorSet, const timespec* timeout,
                   const sigset_t* mask)
{
    {
        std::unique_lock lock(mutex);
        ++begunCount;
        isHeld = holding;
        changed.notify_all();
        changed.wait(lock, [] { return !holding; });
    }
    const int result = __real_pselect(count, readSet, writeSet, errorSet, timeout, mask);
    const std::lock_guard lock(mutex);
    readyCount += result > 0 ? 1 : 0;
    timeoutCount += result == 0 ? 1 : 0;
    changed.notify_all();
    return result;
}
}

bool pselectwatch::awaitReady(size_t count, std::chrono::milliseconds limit)
{
    return awaitMore(readyCount, count, limit);
}

bool pselectwatch::awaitTimeouts(size_t count, std::chrono::milliseconds limit)
{
    return awaitMore(timeoutCount, count, limit);
}

pselectwatch::Hold::Hold()
{
    const std::lock_guard lock(mutex);
    holding = true;
}

pselectwatch::Hold::~Hold()
{
    const std::lock_guard lock(mutex);
    holding = false;
    isHeld = false;
    changed.notify_all();
}

bool pselectwatch::Hold::await(std::chrono::milliseconds limit) const
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [] { return isHeld; });
}

size_t pselectwatch::begun()
{
    const std::lock_guard lock(mutex);
    return begunCount;
}
