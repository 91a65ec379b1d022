#pragma once

#include <vqutil/ThreadSafety.h>

#include <mutex>

/// A plain, non-recursive mutex.
///
/// Constant-initialised, so that one with static storage can be used by constructors and destructors of
/// other static objects. The destructor does nothing.
///
/// Threads: any. A thread that locks a mutex that it holds already waits for ever.
class VQ_CAPABILITY("mutex") Mutex
{
public:
    constexpr Mutex() noexcept = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Waits until the mutex is free and takes it.
    /// @throws std::system_error if the system refuses the lock.
    void lock() VQ_ACQUIRES_LOCK() { mutex.lock(); }

    /// Takes the mutex if it is free.
    /// @return true if the caller now holds it; false if another thread does. Never waits.
    bool tryLock() VQ_TRIES_LOCK(true) { return mutex.try_lock(); }

    /// Gives the mutex back; the caller holds it.
    void unlock() VQ_RELEASES_LOCK() { mutex.unlock(); }

private:
    std::mutex mutex;
};

/// Holds a Mutex for the length of a scope.
class VQ_SCOPED_CAPABILITY MutexLock
{
public:
    /// @throws std::system_error if the system refuses the lock.
    explicit MutexLock(Mutex& lockedMutex) VQ_ACQUIRES_LOCK(lockedMutex) : mutex(lockedMutex) { mutex.lock(); }
    ~MutexLock() VQ_RELEASES_LOCK() { mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex;
};
