// Interfaces with static storage: they are destroyed after the library's own objects, one never configured, the
// others in the middle of traffic.
#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

class Callback : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t*, size_t) override
    {
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
    void awaitStatus(int wanted)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [=, this] { return status == wanted; });
    }
    void awaitFrames(unsigned count)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [=, this] { return received >= count; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    unsigned received = 0;
    int status = 0;
};

const CanInterface::Configuration RECEIVER{1, 0x100, CAN_STANDARD, {}};

Callback callback;
CanInterface neverConfigured;
CanInterface receiver;

} // namespace

int main()
{
    static CanInterface sender;
    receiver.callbacks.insert(&callback);
    sender.configure({0, 0x100, CAN_STANDARD, {}});
    receiver.configure(RECEIVER);
    MsgRxHandler::getInstance()->setOnline();
    callback.awaitStatus(1);
    receiver.configure(RECEIVER);
    const uint8_t payload[8] = {};
    for (int i = 0; i < 1000; ++i) {
        sender.send(payload, sizeof(payload));
    }
    callback.awaitFrames(1);
    return 0;
}
