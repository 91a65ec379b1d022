#pragma once

#include <support/Recorder.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

/// What this process holds of the system.
namespace processresources {

namespace detail {

inline size_t entriesOf(const char* directory)
{
    // The descriptor that lists the directory is one of the entries of /proc/self/fd, always.
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

inline size_t settled(size_t (*count)(), size_t most)
{
    const auto end = std::chrono::steady_clock::now() + Recorder<int>::LIMIT;
    size_t last = count();
    while (last > most && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
        last = count();
    }
    return last;
}

} // namespace detail

inline size_t openDescriptors()
{
    return detail::entriesOf("/proc/self/fd");
}

inline size_t threads()
{
    return detail::entriesOf("/proc/self/task");
}

/// Waits until there are at most so many descriptors: what another thread closes is open for a moment more.
/// @return the last count
inline size_t settledDescriptors(size_t most)
{
    return detail::settled(openDescriptors, most);
}

/// Waits until there are at most so many threads: one that has been joined stays listed for a moment.
/// @return the last count
inline size_t settledThreads(size_t most)
{
    return detail::settled(threads, most);
}

} // namespace processresources
