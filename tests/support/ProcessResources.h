#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

/// What this process holds of the system.
namespace processresources {

namespace detail {

inline size_t entriesOf(const char* directory)
{
    // The descriptor that lists the directory is one of the entries of /proc/self/fd, always.
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
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

} // namespace processresources
