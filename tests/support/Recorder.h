#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

/// Collects what callbacks report, on any thread, and lets a test wait for it.
template <typename Event>
class Recorder
{
public:
    /// Generous: a wait ends with its event; only a failing test ever takes this long.
    static constexpr std::chrono::seconds LIMIT{30};

    void add(Event event)
    {
        const std::lock_guard lock(mutex);
        events.push_back(std::move(event));
        changed.notify_all();
    }

    /// Everything so far, in order.
    std::vector<Event> all() const
    {
        const std::lock_guard lock(mutex);
        return events;
    }

    size_t count() const
    {
        const std::lock_guard lock(mutex);
        return events.size();
    }

    void clear()
    {
        const std::lock_guard lock(mutex);
        events.clear();
    }

    /// Waits until there are at least `wanted` events.
    /// @return false when the limit passed first
    bool waitForCount(size_t wanted) const
    {
        return waitUntil([&](const std::vector<Event>& all) { return all.size() >= wanted; });
    }

    /// Waits until `predicate`, given all events, holds.
    /// @return false when the limit passed first
    template <typename Predicate>
    bool waitUntil(Predicate predicate, std::chrono::seconds limit = LIMIT) const
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, [&] { return predicate(events); });
    }

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<Event> events;
};
