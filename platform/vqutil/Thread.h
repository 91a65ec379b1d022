#pragma once

#include <vqutil/Export.h>

#include <pthread.h>

#include <atomic>

/// Base of every class that runs a thread of its own.
///
/// A derived class overrides threadCode(), calls start() and, before it is destroyed, join(). One object
/// has at most one thread that is not joined: start() while `threadHandle` holds one forgets nothing and
/// fails. The base neither stops nor joins anything by itself: its destructor runs when threadCode() of the
/// derived class can no longer be called.
///
/// Threads: start() and join() may be called from any thread, join() from several at once (one of them
/// joins). join() from inside threadCode() fails instead of waiting for itself.
class VQ_API Thread
{
public:
    Thread() noexcept = default;
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// The body of the thread. The thread ends when it returns.
    virtual void threadCode() = 0;

    /// Thread entry for pthread_create(3): runs threadCode() of the Thread that `thread` points to.
    /// @return always a null pointer
    static void* startWrapper(void* thread);

    /// Creates a thread with default attributes that runs threadCode(), and keeps its handle.
    /// @return 0, or the error number of pthread_create(3); EBUSY if the last thread is not joined yet.
    ///         After an error the handle is unchanged.
    int start();

    /// Waits for the end of the thread and forgets its handle. The handle is taken out first, so two callers
    /// cannot join the same thread.
    /// @return 0 once the thread has ended; -1 if there is nothing to join (never started, already joined,
    ///         or joined by another caller at this moment) or if called by the thread itself, which then
    ///         still has to be joined by another one.
    int join();

protected:
    /// Value of `threadHandle` while there is nothing to join.
    static constexpr pthread_t NO_THREAD = static_cast<pthread_t>(-1);

    /// The thread that join() would wait for.
    std::atomic<pthread_t> threadHandle{NO_THREAD};
    /// For the derived class: the thread is to keep running. The base never touches it.
    std::atomic<bool> running{false};
};
