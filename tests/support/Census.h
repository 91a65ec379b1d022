#pragma once

#include <cstddef>
#include <ostream>

/// What this process holds of the system, from /proc.
struct Census
{
    size_t threads = 0;
    size_t descriptors = 0;

    static Census take();
    bool operator==(const Census&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Census& census)
{
    return stream << census.threads << " threads, " << census.descriptors << " descriptors";
}
