#pragma once

#include <vqutil/Mutex.h>

#include <atomic>

/// What the one object of a class in a process needs beside itself: its creation by the first of several callers, and
/// a place for its storage once it is destroyed at exit, when other threads may still be inside it.
///
/// Constant-initialised and trivially destructible, so that it serves constructors and destructors of static objects.
///
/// Threads: any.
class ProcessObject
{
public:
    /// @param instance  where the class keeps the pointer; null until create() has returned, so nobody meets an
    ///                  object that is not complete
    /// @param create    makes the object. Called by one thread; the others wait for it
    template <typename T, typename Create>
    T* getOrCreate(std::atomic<T*>& instance, Create create)
    {
        if (T* const existing = instance.load(std::memory_order_acquire)) {
            return existing;
        }
        const MutexLock lock(creationMutex);
        T* object = instance.load(std::memory_order_relaxed);
        if (object == nullptr) {
            object = create();
            instance.store(object, std::memory_order_release);
        }
        return object;
    }

    /// Keeps the storage of the destroyed object, reachable, until the process has gone.
    void retire(void* storage) noexcept { retiredStorage.store(storage); }

private:
    Mutex creationMutex;
    std::atomic<void*> retiredStorage{nullptr};
};
