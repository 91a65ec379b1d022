#pragma once

#include <csignal>

/// Lets a program end in order when it is asked to: by SIGINT or SIGTERM. To be built before any thread is, since
/// threads inherit what is blocked.
class StopSignal
{
public:
    StopSignal();

    /// Waits until the program is asked to end.
    void wait() const;

private:
    sigset_t signals{};
};
