#include "Forwarder.h"

#include <utility>

Forwarder::Forwarder() : thread([this] { sendUntilStopped(); }) {}

Forwarder::~Forwarder()
{
    {
        const std::lock_guard lock(mutex);
        stopped = true;
    }
    changed.notify_one();
    thread.join();
}

void Forwarder::forward(CanIsoTpHandler& to, std::vector<uint8_t> data)
{
    const std::lock_guard lock(mutex);
    messages.push_back({&to, std::move(data)});
    changed.notify_one();
}

void Forwarder::sendUntilStopped()
{
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return stopped || !messages.empty(); });
        if (stopped) {
            return;
        }
        const Message message = std::move(messages.front());
        messages.pop_front();
        lock.unlock(); // a send may take as long as a burst of the handler's worker
        message.to->sendTxID(message.data.data(), message.data.size());
        lock.lock();
    }
}
