#pragma once

#include <chrono>
#include <cstddef>

/// Sees every pselect() of the process, which is the wait of the receive thread: how often it found a device ready,
/// and how often its time ran out.
namespace pselectwatch {

/// Waits until it has returned so many more times because something was ready.
bool awaitReady(size_t count, std::chrono::milliseconds limit);

/// Waits until its time has run out so many more times.
bool awaitTimeouts(size_t count, std::chrono::milliseconds limit);

/// While it lives, a wait that begins goes no further than its beginning.
class Hold
{
public:
    Hold();
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    /// Waits until a wait is held.
    bool await(std::chrono::milliseconds limit) const;
};

/// How many waits have begun.
size_t begun();

} // namespace pselectwatch
