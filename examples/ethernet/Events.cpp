#include "Events.h"

#include <chrono>
#include <stdexcept>
#include <utility>

namespace {

/// Far above what a working server needs, and above the ten seconds that a lost one takes to be noticed.
constexpr std::chrono::seconds PATIENCE{60};

constexpr int STATUS_CONNECTED = 1;
constexpr int STATUS_DISCONNECTED = 2;
constexpr int STATUS_DATA_LOST = 3;
constexpr int STATUS_NEW_FIGURE = 5;

std::string nameOf(int status)
{
    switch (status) {
    case STATUS_CONNECTED:
        return "connected";
    case STATUS_DISCONNECTED:
        return "disconnected";
    case STATUS_DATA_LOST:
        return "data lost";
    default:
        return "status " + std::to_string(status);
    }
}

} // namespace

void Events::onDataReceived(const uint8_t* data, size_t size)
{
    const std::lock_guard lock(mutex);
    events.push_back({0, std::string(data, data + size)});
    changed.notify_all();
}

void Events::onInterfaceState(int status)
{
    const std::lock_guard lock(mutex);
    if (status == STATUS_NEW_FIGURE) {
        hasFigure = true;
    } else {
        events.push_back({status, {}});
    }
    changed.notify_all();
}

std::string Events::next(size_t wanted)
{
    std::unique_lock lock(mutex);
    std::string data;
    do {
        if (!changed.wait_for(lock, PATIENCE, [this] { return !events.empty(); })) {
            throw std::runtime_error("nothing has come for a minute");
        }
        const event_t event = std::move(events.front());
        events.pop_front();
        if (event.status != 0) {
            return "state: " + nameOf(event.status);
        }
        data += event.data;
    } while (data.size() < wanted);
    return "received: " + data;
}

bool Events::takeFigure()
{
    const std::lock_guard lock(mutex);
    return std::exchange(hasFigure, false);
}
