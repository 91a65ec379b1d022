#include <support/PipeCalls.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
int __real_pipe(int* fds);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit);
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);

int __wrap_pipe(int* fds);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit);
ssize_t __wrap_read(int fd, void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size);

int __wrap_pipe(int* fds)
{
    return PipeCalls::instance().pipe(fds);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit)
{
    return PipeCalls::instance().select(count, readable, writable, exceptional, limit);
}

ssize_t __wrap_read(int fd, void* data, size_t size)
{
    if (const int error = size == 1 ? PipeCalls::instance().reads.next() : 0) {
        errno = error;
        return -1;
    }
    return __real_read(fd, data, size);
}

ssize_t __wrap_write(int fd, const void* data, size_t size)
{
    if (const int error = size == 1 ? PipeCalls::instance().writes.next() : 0) {
        errno = error;
        return -1;
    }
    return __real_write(fd, data, size);
}
}

PipeCalls& PipeCalls::instance()
{
    static PipeCalls calls;
    return calls;
}

void PipeCalls::Script::add(int error)
{
    const std::lock_guard lock(mutex);
    errors.push_back(error);
}

int PipeCalls::Script::next()
{
    const std::lock_guard lock(mutex);
    if (errors.empty()) {
        return 0;
    }
    const int error = errors.front();
    errors.pop_front();
    return error;
}

void PipeCalls::Script::clear()
{
    const std::lock_guard lock(mutex);
    errors.clear();
}

void PipeCalls::reset()
{
    for (Script* const script : {&pipes, &reads, &writes, &waitsToWrite, &waitsToRead}) {
        script->clear();
    }
    waits.clear();
    const int expiry = expiryFd.exchange(-1);
    if (expiry >= 0) {
        close(expiry);
    }
}

void PipeCalls::ownTime()
{
    if (expiryFd < 0) {
        expiryFd = eventfd(0, EFD_SEMAPHORE | EFD_CLOEXEC);
    }
}

void PipeCalls::expire()
{
    const uint64_t one = 1;
    static_cast<void>(!__real_write(expiryFd, &one, sizeof one));
}

int PipeCalls::pipe(int* fds)
{
    if (const int error = pipes.next()) {
        errno = error;
        return -1;
    }
    return __real_pipe(fds);
}

int PipeCalls::select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit)
{
    if (readable != nullptr) {
        waits.add(limit != nullptr);
    }
    if (const int error = (readable != nullptr ? waitsToRead : waitsToWrite).next()) {
        errno = error;
        return error == TIMED_OUT ? 0 : -1;
    }
    const int expiry = expiryFd;
    if (readable == nullptr || limit == nullptr || expiry < 0) {
        return __real_select(count, readable, writable, exceptional, limit);
    }
    FD_SET(expiry, readable);
    int ready = __real_select(std::max(count, expiry + 1), readable, writable, exceptional, nullptr);
    if (ready > 0 && FD_ISSET(expiry, readable)) {
        FD_CLR(expiry, readable);
        if (--ready == 0) {
            uint64_t one = 0;
            static_cast<void>(!__real_read(expiry, &one, sizeof one));
        }
    }
    return ready;
}
