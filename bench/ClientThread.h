#pragma once

#include <wire/FileDescriptor.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/socket.h>

namespace bench {

/// Reads a socket in a thread of its own and tells when enough has arrived. Ends when the other end closes.
class ClientThread
{
public:
    explicit ClientThread(wire::FileDescriptor socket) : fd(std::move(socket)), thread([this] { read(); }) {}
    ~ClientThread()
    {
        ::shutdown(fd.get(), SHUT_RDWR);
        thread.join();
    }
    ClientThread(const ClientThread&) = delete;
    ClientThread& operator=(const ClientThread&) = delete;

    /// Waits until so many bytes have arrived in all.
    void awaitBytes(uint64_t wanted)
    {
        std::unique_lock lock(mutex);
        target = wanted;
        changed.wait(lock, [&] { return bytes >= target; });
    }

private:
    static constexpr size_t READ_BYTES = 65536;

    void read()
    {
        std::vector<uint8_t> buffer(READ_BYTES);
        for (ssize_t count = 1; count > 0;) {
            count = ::recv(fd.get(), buffer.data(), buffer.size(), 0);
            const std::lock_guard lock(mutex);
            bytes += count > 0 ? static_cast<uint64_t>(count) : 0;
            if (bytes >= target) {
                changed.notify_one();
            }
        }
    }

    const wire::FileDescriptor fd;
    std::mutex mutex;
    std::condition_variable changed;
    uint64_t bytes = 0;
    uint64_t target = ~uint64_t{0};
    std::thread thread;
};

} // namespace bench
