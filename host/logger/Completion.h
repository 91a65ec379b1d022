#pragma once

#include <condition_variable>
#include <exception>
#include <mutex>

namespace vlogger {

/// Lets one thread wait until another has done something for it, and hands over what that threw.
class Completion
{
public:
    /// Does the work, then lets the waiting thread go.
    template <typename Work>
    void run(Work&& work)
    {
        std::exception_ptr thrown;
        try {
            work();
        } catch (...) {
            thrown = std::current_exception();
        }
        finish(std::move(thrown));
    }

    /// Lets the waiting thread go. Afterwards this object may be gone.
    void finish(std::exception_ptr thrown = nullptr)
    {
        // Notified under the lock: the waiting thread owns this object and destroys it as soon as it may.
        const std::lock_guard lock(mutex);
        failure = std::move(thrown);
        done = true;
        condition.notify_one();
    }

    /// @throws what the work threw
    void wait()
    {
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return done; });
        if (failure) {
            std::rethrow_exception(std::move(failure));
        }
    }

private:
    std::mutex mutex;
    std::condition_variable condition;
    std::exception_ptr failure;
    bool done = false;
};

} // namespace vlogger
