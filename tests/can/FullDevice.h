#pragma once

#include <CanTxHandler.h>

#include <can/TestFrames.h>
#include <support/PrivateMember.h>
#include <support/ThreadState.h>
#include <support/Waiting.h>

#include <vqutil/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include <sys/socket.h>

REVEAL_MEMBER(TransmitterLock, CanTxHandler, mutex);

/// A transmit device that takes no frame before the test has read from it.
namespace fulldevice {

/// Sends frames into a device, the end of a pair of sockets, until it has no room.
/// @return how many it took
inline size_t fill(int fd)
{
    const std::vector<uint8_t> filler = testframes::bytesOnChannel(1);
    size_t fillers = 0;
    while (::send(fd, filler.data(), filler.size(), MSG_DONTWAIT) > 0) {
        ++fillers;
    }
    return fillers;
}

/// Waits until a thread that sends to a full device is inside the device. It has the transmitter's lock then, with
/// nothing but the device to wait for; asleep alone would not do, nor would a device without room.
inline bool awaitSender(CanTxHandler& transmitter, pid_t sender)
{
    Mutex& lock = transmitter.*reveal(TransmitterLock{});
    const auto isHeld = [&lock] {
        if (!lock.tryLock()) {
            return true;
        }
        lock.unlock();
        return false;
    };
    return becomesTrue(isHeld) && fallsAsleep(sender);
}

} // namespace fulldevice
