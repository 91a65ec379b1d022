#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <iostream>

/// Standard output or standard error leads elsewhere while this object lives.
class RedirectedDescriptor
{
public:
    /// @param number  STDOUT_FILENO or STDERR_FILENO
    /// @param target  where it leads; closed here
    RedirectedDescriptor(int number, int target) : redirected(number), original(fcntl(number, F_DUPFD_CLOEXEC, 0))
    {
        std::cout.flush();
        dup2(target, redirected);
        close(target);
    }
    ~RedirectedDescriptor()
    {
        dup2(original, redirected);
        close(original);
    }
    RedirectedDescriptor(const RedirectedDescriptor&) = delete;
    RedirectedDescriptor& operator=(const RedirectedDescriptor&) = delete;

private:
    const int redirected;
    const int original;
};

/// A file that has no room for anything.
inline int openFullDisk()
{
    return open("/dev/full", O_WRONLY | O_CLOEXEC);
}
