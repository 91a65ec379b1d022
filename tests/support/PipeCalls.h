#pragma once

#include <support/Recorder.h>

#include <atomic>
#include <deque>
#include <mutex>

#include <sys/select.h>

/// Owns pipe(), select() and one-byte read() and write() of a program that lists PipeCalls.cpp among its sources
/// and wraps these four. Calls go to the system until a test says otherwise.
class PipeCalls
{
public:
    static PipeCalls& instance();

    /// Forgets what the test before left; time is the system's again. No worker may run.
    void reset();

    /// Error numbers for the next calls, in order; 0 lets a call pass. After them calls pass.
    struct Script
    {
        void add(int error);
        /// @return the error for this call, 0 if it passes
        int next();
        void clear();

    private:
        std::mutex mutex;
        std::deque<int> errors;
    };

    static constexpr int TIMED_OUT = -1; ///< in a select script: the call returns 0

    Script pipes;
    Script reads;
    Script writes;
    Script waitsToWrite; ///< select() for writing
    Script waitsToRead;  ///< select() for reading

    /// Every select() for reading: true if it has a time limit.
    Recorder<bool> waits;

    /// From now on no limited wait for reading ends by time, except by expire().
    void ownTime();
    /// Ends the limited wait that is going on, or the next one, as if its time had passed.
    void expire();

    int pipe(int* fds);
    int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit);

private:
    std::atomic<int> expiryFd{-1};
};
