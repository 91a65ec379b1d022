#pragma once

#include <wire/FileDescriptor.h>

#include <signal.h>

namespace tool {

/// SIGINT and SIGTERM as something that can be waited for. Blocks both, for threads started later too.
class StopSignal
{
public:
    /// @throws std::system_error if there is no descriptor left
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Ready for reading once one has come.
    int descriptor() const { return fd.get(); }

    /// Waits until one comes or `other` is ready for reading.
    /// @param other    -1: none
    /// @param limitMs  -1: no limit
    /// @return true if one has come, now or earlier
    bool wait(int other, int limitMs);

    /// True if one has come.
    bool hasCome() { return wait(-1, 0); }

    /// The mask before, for a program that is started.
    const sigset_t& maskBefore() const { return before; }

private:
    sigset_t before{};
    wire::FileDescriptor fd;
    bool come = false;
};

} // namespace tool
