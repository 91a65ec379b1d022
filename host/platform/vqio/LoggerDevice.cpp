#include "vqio/LoggerDevice.h"

#include "endpoint/LoggerRequest.h"
#include "vqio/TransmitDescriptors.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <new>
#include <system_error>

namespace vqhost {

namespace {

/// A thread that is cancelled in the middle of a request would have to unwind through everything that serves it.
class NoCancellation
{
public:
    NoCancellation()
    {
        pthread_testcancel();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    }
    ~NoCancellation() { pthread_setcancelstate(before, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

void applyFlags(int fd, int flags)
{
    // Born close-on-exec, so that a process that forks meanwhile does not pass on what nobody asked to keep.
    if ((flags & O_CLOEXEC) == 0) {
        fcntl(fd, F_SETFD, 0);
    }
    if ((flags & O_NONBLOCK) != 0) {
        fcntl(fd, F_SETFL, O_NONBLOCK);
    }
}

wire::FileDescriptor openTransmitDevice(const char* path)
{
    Grant grant = ask({.kind = wire::Kind::OPEN_WRITE, .text = path});
    if (!noteTransmitDescriptor(grant.connection.get())) {
        throw std::system_error(EMFILE, std::generic_category(), path);
    }
    return std::move(grant.connection);
}

wire::FileDescriptor openTraceDevice(const char* path)
{
    Grant grant = ask({.kind = wire::Kind::OPEN_READ, .text = path});
    if (!grant.passed) {
        // The virtual logger sent one that this process had no room for.
        throw std::system_error(EMFILE, std::generic_category(), path);
    }
    return std::move(grant.passed);
}

} // namespace

int openLoggerDevice(const char* path, int flags)
{
    const int access = flags & O_ACCMODE;
    if (access != O_WRONLY && access != O_RDONLY) {
        errno = EACCES;
        return -1;
    }
    const NoCancellation noCancellation;
    const int savedErrno = errno;
    try {
        wire::FileDescriptor device = access == O_WRONLY ? openTransmitDevice(path) : openTraceDevice(path);
        applyFlags(device.get(), flags);
        errno = savedErrno;
        return device.release();
    } catch (const std::system_error& error) {
        errno = error.code().value() == ESHUTDOWN ? ENXIO : error.code().value();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    return -1;
}

} // namespace vqhost
