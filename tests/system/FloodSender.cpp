#include "FloodSender.h"

FloodSender::FloodSender(uint8_t channel) : sender(channel)
{
    sender.configure();
}

void FloodSender::start()
{
    thread = std::thread([this] { run(); });
}

void FloodSender::stop()
{
    {
        const std::lock_guard lock(mutex);
        stopping = true;
        changed.notify_all();
    }
    if (thread.joinable()) {
        thread.join();
    }
}

bool FloodSender::awaitSent(uint64_t count, std::chrono::milliseconds limit) const
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return sent >= count; });
}

bool FloodSender::awaitFailure() const
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, Recorder<int>::LIMIT, [&] { return failed; });
}

void FloodSender::resume()
{
    const std::lock_guard lock(mutex);
    failed = false;
    changed.notify_all();
}

void FloodSender::run()
{
    while (!stopping) {
        if (sender.sendNext() == 0) {
            const std::lock_guard lock(mutex);
            ++sent;
            changed.notify_all();
            continue;
        }
        std::unique_lock lock(mutex);
        failed = true;
        changed.notify_all();
        changed.wait(lock, [&] { return !failed || stopping; });
    }
}
