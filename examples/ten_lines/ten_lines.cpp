// Sends one frame on channel 0 and receives it on channel 1, which is wired to it.
#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <future>
#include <iostream>

struct Listener : InterfaceBaseCb
{
    void onDataReceived(const uint8_t* record, size_t) override { channel.set_value(record[14]); }
    void onInterfaceState(int status) override
    {
        if (status == 1 || status == 4) { // online, or a device cannot be opened
            start.set_value(status);
        }
    }
    std::promise<int> start;
    std::promise<int> channel;
};

int main()
{
    const uint8_t payload[] = {0xCA, 0xFE};
    Listener listener; // before the interfaces: it has to outlive them
    CanInterface sender;
    CanInterface receiver;
    sender.configure({0, 0x123, CAN_STANDARD, {}});
    receiver.callbacks.insert(&listener);
    receiver.configure({1, 0x123, CAN_STANDARD, {}}); // from now on the listener hears of states
    MsgRxHandler::getInstance()->setOnline();         // once per process: opens the devices
    if (listener.start.get_future().get() != 1) {
        return 1;
    }
    receiver.configure({1, 0x123, CAN_STANDARD, {}}); // from now on it hears frames
    if (sender.send(payload, sizeof payload) != 0) {
        return 1;
    }
    std::cout << "received on channel " << listener.channel.get_future().get() << '\n';
    MsgRxHandler::getInstance()->setOffline();
}
