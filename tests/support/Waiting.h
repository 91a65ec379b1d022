#pragma once

#include <chrono>
#include <thread>

/// How long a test waits for an event that is due at once. Only a failing test waits that long.
constexpr std::chrono::seconds LIMIT{30};

/// For facts that announce themselves to nobody, such as an entry of /proc: looks again and again until `isTrue()`
/// or until the limit has passed.
/// @return the last answer
template <typename Predicate>
bool becomesTrue(Predicate isTrue, std::chrono::milliseconds limit = LIMIT)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!isTrue()) {
        if (std::chrono::steady_clock::now() > end) {
            return isTrue();
        }
        std::this_thread::yield();
    }
    return true;
}
