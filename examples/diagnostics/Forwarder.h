#pragma once

#include <CanIsoTpHandler.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

/// Sends messages on a thread of its own.
///
/// A callback must not send through another handler whose callbacks send through the first: each callback runs with
/// its handler's lock held, and each send may report a status and take the other's. Handing the message over here
/// takes no lock of any handler.
class Forwarder
{
public:
    Forwarder();
    /// Forgets what is not sent yet and ends the thread. The handlers have to be alive still.
    ~Forwarder();
    Forwarder(const Forwarder&) = delete;
    Forwarder& operator=(const Forwarder&) = delete;

    /// Has `data` sent through `to`. Returns at once; may be called from a callback.
    void forward(CanIsoTpHandler& to, std::vector<uint8_t> data);

private:
    struct Message
    {
        CanIsoTpHandler* to;
        std::vector<uint8_t> data;
    };

    void sendUntilStopped();

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Message> messages;
    bool stopped = false;
    std::thread thread; ///< last: it uses the others
};
