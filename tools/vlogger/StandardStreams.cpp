#include "StandardStreams.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace tool {

void occupyStandardStreams()
{
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) < 0 && errno == EBADF) {
            // The lowest free number is this one; opened the other way round, it cannot be used.
            (void)::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

void requireStandardOutput()
{
    if ((::fcntl(STDOUT_FILENO, F_GETFL) & O_ACCMODE) == O_RDONLY) {
        throw std::runtime_error("standard output cannot be written");
    }
}

bool hasReaderGone()
{
    pollfd state{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & POLLERR) != 0;
}

bool flushStandardOutput()
{
    std::cout.flush();
    return std::cout.good() || hasReaderGone();
}

bool isReaderGone(const std::string& path, const std::system_error& error)
{
    return path == "-" && error.code() == std::errc::broken_pipe;
}

} // namespace tool
