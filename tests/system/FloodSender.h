#pragma once

#include "NumberedFrames.h"

#include <atomic>
#include <thread>

/// Sends numbered frames on one channel as fast as the device takes them, in a thread of its own, until stop().
/// After a failure it waits for resume().
class FloodSender
{
public:
    explicit FloodSender(uint8_t channel);
    ~FloodSender() { stop(); }
    FloodSender(const FloodSender&) = delete;
    FloodSender& operator=(const FloodSender&) = delete;

    void start();
    void stop();

    /// Waits until so many sends have succeeded since the construction.
    bool awaitSent(uint64_t count, std::chrono::milliseconds limit = Recorder<int>::LIMIT) const;

    /// Waits until a send has failed and the sender waits.
    bool awaitFailure() const;

    /// Goes on with the next number.
    void resume();

    uint64_t sentCount() const { return sent; }

private:
    void run();

    NumberedSender sender;
    std::atomic<uint64_t> sent{0};
    std::atomic<bool> stopping{false};
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    bool failed = false;
    std::thread thread;
};
