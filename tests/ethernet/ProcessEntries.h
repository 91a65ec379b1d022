#pragma once

#include <support/Recorder.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

/// Entries of a directory of /proc, such as the threads or the descriptors of this process.
inline size_t entriesOf(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

/// Waits until a directory has at most so many entries: a thread that has been joined stays listed for a moment.
/// @return the last count
inline size_t settledEntriesOf(const char* directory, size_t most)
{
    const auto end = std::chrono::steady_clock::now() + Recorder<int>::LIMIT;
    size_t count = entriesOf(directory);
    while (count > most && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
        count = entriesOf(directory);
    }
    return count;
}
