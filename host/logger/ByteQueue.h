#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vlogger {

/// Bytes in order, first in, first out, in one piece of memory.
class ByteQueue
{
public:
    size_t size() const { return bytes.size() - begin; }
    bool empty() const { return begin == bytes.size(); }

    void append(std::span<const uint8_t> more)
    {
        // Moves what waits to the front once that costs less than it frees.
        if (begin > size() && bytes.size() + more.size() > bytes.capacity()) {
            bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(begin));
            begin = 0;
        }
        bytes.insert(bytes.end(), more.begin(), more.end());
    }

    /// The oldest bytes, at most `limit`.
    std::span<const uint8_t> front(size_t limit) const
    {
        return std::span(bytes).subspan(begin, std::min(limit, size()));
    }

    /// Takes the oldest `count` bytes off; there are that many.
    void pop(size_t count)
    {
        begin += count;
        if (empty()) {
            bytes.clear();
            begin = 0;
        }
    }

private:
    std::vector<uint8_t> bytes;
    size_t begin = 0;
};

} // namespace vlogger
