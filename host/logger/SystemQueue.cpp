#include <logger/SystemQueue.h>

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <bit>

namespace vlogger {

namespace {

// How the kernel accounts for a piece: its bytes and what it notes behind them, in a block whose size is a power of
// two, and a head of its own.
constexpr size_t ALIGNMENT_BYTES = 64;
constexpr size_t NOTES_BYTES = 320;
constexpr size_t HEAD_BYTES = 256;

uint32_t memoryOf(size_t bytes)
{
    const size_t aligned = (bytes + ALIGNMENT_BYTES - 1) / ALIGNMENT_BYTES * ALIGNMENT_BYTES;
    return static_cast<uint32_t>(std::bit_ceil(aligned + NOTES_BYTES) + HEAD_BYTES);
}

} // namespace

void SystemQueue::sent(size_t bytes, size_t records)
{
    pieces[count % pieces.size()] = {.memoryBytes = memoryOf(bytes), .records = static_cast<uint32_t>(records)};
    ++count;
}

uint64_t SystemQueue::recordsWaiting(int fd) const
{
    int unread = 0;
    if (::ioctl(fd, SIOCOUTQ, &unread) != 0) {
        return 0;
    }
    uint64_t records = 0;
    for (size_t age = 1; unread > 0 && age <= std::min(count, pieces.size()); ++age) {
        const Piece& piece = pieces[(count - age) % pieces.size()];
        records += piece.records;
        unread -= static_cast<int>(piece.memoryBytes);
    }
    return records;
}

} // namespace vlogger
