#include "vqio/TransmitDescriptors.h"

#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>

namespace vqhost {

namespace {

/// Inode numbers of sockets, by descriptor; 0: not noted. They are unique among the living sockets.
constexpr size_t BLOCK_SIZE = 1024;
using Block = std::array<std::atomic<ino_t>, BLOCK_SIZE>;

constexpr size_t MAX_BLOCKS = 1024;
/// Descriptors below 1024 have their block at once; more are added as they are needed and stay.
constinit Block firstBlock{};
constinit std::array<std::atomic<Block*>, MAX_BLOCKS> blocks{&firstBlock};

std::atomic<ino_t>* slotOf(int fd)
{
    const auto index = static_cast<size_t>(fd);
    if (fd < 0 || index / BLOCK_SIZE >= MAX_BLOCKS) {
        return nullptr;
    }
    Block* const block = blocks[index / BLOCK_SIZE].load(std::memory_order_acquire);
    return block != nullptr ? &(*block)[index % BLOCK_SIZE] : nullptr;
}

std::atomic<ino_t>* makeSlotOf(int fd)
{
    const auto index = static_cast<size_t>(fd);
    if (fd < 0 || index / BLOCK_SIZE >= MAX_BLOCKS) {
        return nullptr;
    }
    std::atomic<Block*>& place = blocks[index / BLOCK_SIZE];
    if (place.load(std::memory_order_acquire) == nullptr) {
        auto* const block = new Block{};
        Block* expected = nullptr;
        if (!place.compare_exchange_strong(expected, block)) {
            delete block;
        }
    }
    return slotOf(fd);
}

/// 0 if the descriptor is no socket.
ino_t socketInode(int fd)
{
    struct stat status
    {
    };
    return fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode) ? status.st_ino : 0;
}

} // namespace

bool noteTransmitDescriptor(int fd)
{
    std::atomic<ino_t>* const slot = makeSlotOf(fd);
    const ino_t inode = socketInode(fd);
    if (slot == nullptr || inode == 0) {
        return false;
    }
    slot->store(inode, std::memory_order_relaxed);
    return true;
}

bool mayBeTransmitDevice(int fd)
{
    const std::atomic<ino_t>* const slot = slotOf(fd);
    return slot != nullptr && slot->load(std::memory_order_relaxed) != 0;
}

bool isTransmitDevice(int fd)
{
    std::atomic<ino_t>* const slot = slotOf(fd);
    if (slot == nullptr) {
        return false;
    }
    const int savedErrno = errno;
    const ino_t inode = socketInode(fd);
    errno = savedErrno;
    ino_t noted = slot->load(std::memory_order_relaxed);
    if (noted == 0) {
        return false;
    }
    if (noted == inode) {
        return true;
    }
    // Only if no new device was noted under the number meanwhile.
    slot->compare_exchange_strong(noted, 0, std::memory_order_relaxed);
    return false;
}

} // namespace vqhost
