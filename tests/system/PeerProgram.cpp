// A second application on the same virtual logger, built as a user builds one. Arguments: "receive" or "send", a
// channel, an identifier, a number of frames. A receiver says "online" when frames flow, a sender waits for the end
// of its input; both say "done" after so many frames and end.
#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <condition_variable>
#include <iostream>
#include <limits>
#include <mutex>
#include <string>

namespace {

class Counter : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t*, size_t) override
    {
        const std::lock_guard lock(mutex);
        ++frames;
        changed.notify_all();
    }
    void onInterfaceState(int newStatus) override
    {
        const std::lock_guard lock(mutex);
        status = newStatus;
        changed.notify_all();
    }

    void awaitFrames(unsigned long count)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return frames >= count; });
    }
    void awaitStatus(int wanted)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return status == wanted; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    unsigned long frames = 0;
    int status = 0;
};

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 5) {
        std::cerr << "usage: " << arguments[0] << " receive|send CHANNEL ID COUNT\n";
        return 2;
    }
    const bool receives = arguments[1] == std::string("receive");
    const auto channel = static_cast<uint8_t>(std::stoul(arguments[2]));
    const auto id = static_cast<uint32_t>(std::stoul(arguments[3]));
    const unsigned long count = std::stoul(arguments[4]);

    Counter counter;
    CanInterface can;
    can.callbacks.insert(&counter);
    const CanInterface::Configuration configuration{channel, id, CAN_STANDARD, {}};
    can.configure(configuration);
    if (receives) {
        MsgRxHandler::getInstance()->setOnline();
        counter.awaitStatus(1);
        can.configure(configuration);
        std::cout << "online" << std::endl;
        counter.awaitFrames(count);
    } else {
        std::cin.ignore(std::numeric_limits<std::streamsize>::max());
        for (unsigned long i = 0; i < count; ++i) {
            const uint8_t payload[] = {static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
            if (can.send(payload, sizeof(payload)) != 0) {
                return 1;
            }
        }
    }
    std::cout << "done" << std::endl;
    MsgRxHandler::getInstance()->setOffline();
    return 0;
}
