// Sends one frame on channel 0 and receives it on channel 1, which is wired to it.
#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <array>
#include <future>
#include <iostream>

struct Listener : InterfaceBaseCb
{
    void onDataReceived(const uint8_t* record, size_t) override
    {
        std::cout << "received on channel " << unsigned{record[14]} << '\n';
        frame.set_value(true);
    }
    void onInterfaceState(int status) override
    {
        if (status == 4) { // a device cannot be opened: nothing will arrive
            frame.set_value(false);
        }
        if (status == 1 || status == 4) {
            start.set_value();
        }
    }
    void awaitStart() { start.get_future().wait(); }
    bool awaitFrame() { return frame.get_future().get(); }

    std::promise<void> start;
    std::promise<bool> frame;
};

int main()
{
    Listener listener;               // before the interfaces: it has to outlive them
    std::array<CanInterface, 2> can; // one for each channel
    can[1].callbacks.insert(&listener);
    can[0].configure({0, 0x123, CAN_STANDARD, {}});
    can[1].configure({1, 0x123, CAN_STANDARD, {}}); // from now on the listener hears of states
    MsgRxHandler::getInstance()->setOnline();       // once per process: opens the devices
    listener.awaitStart();
    can[1].configure({1, 0x123, CAN_STANDARD, {}}); // from now on it hears frames
    const uint8_t payload[] = {0xCA, 0xFE};
    return can[0].send(payload, sizeof payload) == 0 && listener.awaitFrame() ? 0 : 1;
}
