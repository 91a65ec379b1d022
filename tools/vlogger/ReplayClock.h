#pragma once

#include <chrono>
#include <functional>

namespace tool {

/// The time of a replay, and the way to wait for it.
class ReplayClock
{
public:
    virtual ~ReplayClock() = default;

    virtual std::chrono::nanoseconds now() = 0;

    /// Waits until `due`; returns at once if that has passed.
    /// @param look  called at the beginning and now and then, to show how far the work has come
    /// @return false if the user has stopped the replay
    virtual bool waitUntil(std::chrono::nanoseconds due, const std::function<void()>& look) = 0;
};

} // namespace tool
