#pragma once

#include <wire/FileDescriptor.h>

#include <signal.h>

namespace tool {

/// SIGINT and SIGTERM as something that can be waited for. There is at most one at a time.
///
/// The first one is left to the command, which ends in its own way. From then on both have their usual effect again,
/// so that a second one ends a command that cannot: one that waits for a pipe nobody reads, say.
class StopSignal
{
public:
    enum class Second
    {
        KILLS,
        IS_IGNORED, ///< for a command that outlives what the first one ends
    };

    /// @throws std::system_error if there is no descriptor left
    explicit StopSignal(Second second = Second::KILLS);
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Waits until one comes or `other` is ready for reading.
    /// @param other    -1: none
    /// @param limitMs  -1: no limit
    /// @return true if one has come, now or earlier
    bool wait(int other, int limitMs);

    /// True if one has come.
    bool hasCome() const;

    /// Makes both what they were before, for a program that is started.
    void restore() const;

private:
    wire::FileDescriptor fd;
    struct sigaction interruptBefore
    {
    };
    struct sigaction terminateBefore
    {
    };
};

} // namespace tool
