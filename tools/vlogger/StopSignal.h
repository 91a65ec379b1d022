#pragma once

#include <wire/FileDescriptor.h>

#include <signal.h>

#include <atomic>
#include <thread>

namespace tool {

/// SIGINT, SIGTERM and, unless it is ignored, SIGHUP as something that can be waited for. There is at most one at a
/// time, made before any thread, so that every thread leaves them to this.
///
/// The first one is left to the command, which ends in its own way. A second one ends a command that cannot: one that
/// waits for a pipe nobody reads, say. What comes within half a second behind the first one belongs to it: a terminal
/// and whoever passes a signal on often send two.
class StopSignal
{
public:
    enum class Second
    {
        KILLS,
        IS_TOLD, ///< by waitForSecond()
    };

    /// @throws std::system_error if there is no descriptor or thread left
    explicit StopSignal(Second second = Second::KILLS);
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Waits until one comes or `other` is ready for reading.
    /// @param other    -1: none
    /// @param limitMs  -1: no limit
    /// @return true if one has come, now or earlier
    bool wait(int other, int limitMs);

    /// As wait() without a limit, for the second one.
    bool waitForSecond(int other);

    /// True if one has come.
    bool hasCome() const { return first.hasCome; }

    /// Makes all what they were before, for a program that is started.
    void restore() const;

private:
    /// Once raised it stays.
    struct Flag
    {
        Flag();
        void raise();
        bool wait(int other, int limitMs) const;

        wire::FileDescriptor fd;
        std::atomic<bool> hasCome{false};
    };

    void listen();

    const Second atSecond;
    Flag first;
    Flag second;
    Flag end; ///< of this object
    wire::FileDescriptor signals;
    sigset_t maskBefore{};
    std::thread listener;
};

} // namespace tool
