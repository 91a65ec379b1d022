#include <support/FailingCalls.h>
#include <support/RealSocketCalls.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>

#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace failing {

Call socketCall;
Call connectCall;
Call setsockoptCall;
Call bindCall;
Call closeCall;
Call pselectCall;
Call recvCall;
Call recvfromCall;
Call sendCall;
Call sendtoCall;
Call pthreadCreateCall;

Recorder<pthread_t> joins;

std::atomic<size_t> pauses{0};
std::atomic<size_t> pausedUs{0};
std::atomic<int> lowestSocketNumber{-1};
std::atomic<size_t> shortSendBytes{0};
std::atomic<size_t> emptyWakeUps{0};

namespace {

std::atomic<bool> skipping{false};

std::mutex pauseMutex;
std::condition_variable pauseChanged;
size_t pausesUntilStop = 0;
bool isStopped = false;

void stopIfDue()
{
    std::unique_lock lock(pauseMutex);
    if (pausesUntilStop == 0 || --pausesUntilStop != 0) {
        return;
    }
    isStopped = true;
    pauseChanged.notify_all();
    pauseChanged.wait(lock, [] { return !isStopped; });
}

struct heldThread_t
{
    void* (*entry)(void*);
    void* argument;
};

std::atomic<bool> holdsNextThread{false};
Recorder<int> releases;

void* runHeldThread(void* held)
{
    const std::unique_ptr<heldThread_t> thread(static_cast<heldThread_t*>(held));
    releases.waitForCount(1);
    return thread->entry(thread->argument);
}

} // namespace

void holdNextThread()
{
    releases.clear();
    holdsNextThread = true;
}

void releaseHeldThread()
{
    releases.add(1);
}

void stopAtPause(size_t number)
{
    const std::lock_guard lock(pauseMutex);
    pausesUntilStop = number;
}

void awaitStoppedPause()
{
    std::unique_lock lock(pauseMutex);
    pauseChanged.wait(lock, [] { return isStopped; });
}

void endStoppedPause()
{
    const std::lock_guard lock(pauseMutex);
    pausesUntilStop = 0;
    isStopped = false;
    pauseChanged.notify_all();
}

void skipPauses()
{
    skipping = true;
}

void Call::fail(int errorNumber, bool onThisThreadOnly, size_t times)
{
    error = errorNumber;
    thread = onThisThreadOnly ? std::this_thread::get_id() : std::thread::id{};
    left = times;
}

void Call::holdNext(bool onThisThreadOnly)
{
    const std::lock_guard lock(holdMutex);
    heldThread = onThisThreadOnly ? std::this_thread::get_id() : std::thread::id{};
    holdsNext = true;
}

bool Call::awaitHeld()
{
    std::unique_lock lock(holdMutex);
    return holdChanged.wait_for(lock, Recorder<int>::LIMIT, [this] { return isHeld; });
}

void Call::release()
{
    const std::lock_guard lock(holdMutex);
    isHeld = false;
    holdChanged.notify_all();
}

void Call::stayIfHeld()
{
    if (!holdsNext) {
        return;
    }
    std::unique_lock lock(holdMutex);
    if (!holdsNext || (heldThread != std::thread::id{} && heldThread != std::this_thread::get_id())) {
        return;
    }
    holdsNext = false;
    isHeld = true;
    holdChanged.notify_all();
    holdChanged.wait(lock, [this] { return !isHeld; });
}

int Call::takeFailure()
{
    ++calls;
    stayIfHeld();
    const std::thread::id wanted = thread;
    if (wanted != std::thread::id{} && wanted != std::this_thread::get_id()) {
        return 0;
    }
    size_t seen = left;
    while (seen != 0) {
        if (left.compare_exchange_weak(seen, seen - 1)) {
            return error;
        }
    }
    return 0;
}

} // namespace failing

namespace {

template <typename Result, typename Real>
Result failOr(failing::Call& call, Real real)
{
    const int error = call.takeFailure();
    if (error != 0) {
        errno = error;
        return -1;
    }
    const Result result = real();
    ++call.returned;
    return result;
}

} // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument);
int __real_pthread_join(pthread_t thread, void** result);
int __real_usleep(useconds_t microseconds);

int __wrap_socket(int domain, int type, int protocol)
{
    return failOr<int>(failing::socketCall, [=] {
        const int fd = __real_socket(domain, type, protocol);
        const int lowest = failing::lowestSocketNumber;
        if (fd < 0 || lowest < 0) {
            return fd;
        }
        const int high = fcntl(fd, F_DUPFD, lowest);
        __real_close(fd);
        return high;
    });
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length)
{
    return failOr<int>(failing::connectCall, [=] { return __real_connect(fd, address, length); });
}

int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t length)
{
    return failOr<int>(failing::setsockoptCall,
                       [=] { return __real_setsockopt(fd, level, option, value, length); });
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length)
{
    return failOr<int>(failing::bindCall, [=] { return __real_bind(fd, address, length); });
}

int __wrap_close(int fd)
{
    const int error = failing::closeCall.takeFailure();
    const int result = __real_close(fd);
    if (error == 0) {
        return result;
    }
    // As in the system, the descriptor is gone all the same.
    errno = error;
    return -1;
}

int __wrap_pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const timespec* timeout,
                   const sigset_t* mask)
{
    return failOr<int>(failing::pselectCall, [=] {
        size_t wanted = failing::emptyWakeUps;
        while (wanted != 0 && !failing::emptyWakeUps.compare_exchange_weak(wanted, wanted - 1)) {
        }
        if (wanted != 0) {
            FD_ZERO(readable);
            return 1;
        }
        return __real_pselect(count, readable, writable, exceptional, timeout, mask);
    });
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags)
{
    return failOr<ssize_t>(failing::recvCall, [=] { return __real_recv(fd, buffer, size, flags); });
}

ssize_t __wrap_recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address, socklen_t* length)
{
    return failOr<ssize_t>(failing::recvfromCall,
                           [=] { return __real_recvfrom(fd, buffer, size, flags, address, length); });
}

ssize_t __wrap_send(int fd, const void* buffer, size_t size, int flags)
{
    return failOr<ssize_t>(failing::sendCall, [=] {
        const size_t limit = failing::shortSendBytes.exchange(0);
        return __real_send(fd, buffer, limit != 0 ? std::min(limit, size) : size, flags);
    });
}

ssize_t __wrap_sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address, socklen_t length)
{
    return failOr<ssize_t>(failing::sendtoCall,
                           [=] { return __real_sendto(fd, buffer, size, flags, address, length); });
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                          void* argument)
{
    // This one gives its error as the result.
    const int error = failing::pthreadCreateCall.takeFailure();
    if (error != 0) {
        return error;
    }
    if (!failing::holdsNextThread.exchange(false)) {
        return __real_pthread_create(thread, attributes, entry, argument);
    }
    auto held = std::make_unique<failing::heldThread_t>(failing::heldThread_t{entry, argument});
    return __real_pthread_create(thread, attributes, failing::runHeldThread, held.release());
}

int __wrap_pthread_join(pthread_t thread, void** result)
{
    failing::joins.add(thread);
    return __real_pthread_join(thread, result);
}

int __wrap_usleep(useconds_t microseconds)
{
    ++failing::pauses;
    failing::pausedUs += microseconds;
    failing::stopIfDue();
    return failing::skipping ? 0 : __real_usleep(microseconds);
}

} // extern "C"
