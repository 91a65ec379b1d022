#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vlogger {

/// Remembers what was last handed to a stream socket, so that what the other end has not read yet can be told in
/// records. The system tells only how much memory the unread pieces take; each send is one piece.
class SystemQueue
{
public:
    /// One send of `bytes` bytes has ended `records` records.
    void sent(size_t bytes, size_t records);

    /// Records that the other end has not read, to the piece.
    uint64_t recordsWaiting(int fd) const;

private:
    struct Piece
    {
        uint32_t memoryBytes = 0;
        uint32_t records = 0;
    };

    /// More pieces than fit into the usual buffer of a socket.
    std::array<Piece, 512> pieces;
    size_t count = 0; ///< ever sent
};

} // namespace vlogger
