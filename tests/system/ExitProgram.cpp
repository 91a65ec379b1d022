// Ends in the middle of something; built as a user builds an application. The argument says in the middle of what:
//   blocked-sender   a thread waits in the transmit device, which takes nothing any more
//   traffic          threads send and receive
//   online           the receive thread was never stopped
//   failed-start     the receive thread ended by itself
//   exit-in-thread   another thread than the main one calls exit()
//   exit-in-callback the receive thread calls exit()
#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>

namespace {

/// The wait for something that must not happen: the sender goes on. It may only be a hint, since a machine may be
/// so busy that a running sender looks blocked.
constexpr std::chrono::milliseconds SILENCE{300};

const CanInterface::Configuration SENDER{0, 0x100, CAN_STANDARD, {}};
const CanInterface::Configuration RECEIVER{1, 0x100, CAN_STANDARD, {}};

// Never destroyed, like all that the threads touch: they go on while the process ends.
std::mutex& mutex = *new std::mutex;
std::condition_variable& changed = *new std::condition_variable;
unsigned long sent = 0;
unsigned long received = 0;
int status = 0;
bool exitInCallback = false;

class Callback : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t*, size_t) override
    {
        if (exitInCallback) {
            std::exit(0);
        }
        const std::lock_guard lock(mutex);
        ++received;
        changed.notify_all();
    }
    void onInterfaceState(int newStatus) override
    {
        const std::lock_guard lock(mutex);
        status = newStatus;
        changed.notify_all();
    }
};

void awaitStatus(int wanted)
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [=] { return status == wanted; });
}

Callback& callback = *new Callback;
CanInterface& sender = *new CanInterface;
CanInterface& receiver = *new CanInterface;

void startFlood()
{
    std::thread([] {
        const uint8_t payload[8] = {};
        for (;;) {
            if (sender.send(payload, sizeof(payload)) == 0) {
                const std::lock_guard lock(mutex);
                ++sent;
                changed.notify_all();
            }
        }
    }).detach();
}

void awaitBlockedSender()
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return sent > 0; });
    unsigned long before = 0;
    do {
        before = sent;
    } while (changed.wait_for(lock, SILENCE, [&] { return sent != before; }));
}

void awaitTraffic()
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return received >= 1000; });
}

} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string what = argumentCount == 2 ? arguments[1] : "";
    exitInCallback = what == "exit-in-callback";
    receiver.callbacks.insert(&callback);
    sender.configure(SENDER);
    receiver.configure(RECEIVER);
    MsgRxHandler::getInstance()->setOnline();
    if (what == "failed-start") {
        awaitStatus(2);
        return 0;
    }
    awaitStatus(1);
    if (what == "blocked-sender") {
        startFlood(); // the device is not active, so nothing is read
        awaitBlockedSender();
    } else if (what == "traffic") {
        receiver.configure(RECEIVER);
        startFlood();
        awaitTraffic();
    } else if (what == "exit-in-thread") {
        receiver.configure(RECEIVER);
        startFlood();
        std::thread([] {
            awaitTraffic();
            std::exit(0);
        }).join();
    } else if (what == "exit-in-callback") {
        receiver.configure(RECEIVER);
        startFlood();
        std::unique_lock lock(mutex);
        changed.wait(lock, [] { return false; });
    } else if (what != "online") {
        std::cerr << "unknown: " << what << '\n';
        return 2;
    }
    return 0;
}
