#pragma once

#include <EthernetInterface.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>

/// Callbacks that remove themselves from their interface while they are called.
class LeavingCallbacks
{
public:
    /// Stands for a reception in place of a status.
    static constexpr int RECEPTION = 0;

    /// Adds three to the interface, which must outlive them or be destroyed before they can be called.
    /// @param event  the status at which they leave, or RECEPTION
    LeavingCallbacks(EthernetInterface& interface, int event)
    {
        for (Leaving& one : leaving) {
            one.interface = &interface;
            one.event = event;
            interface.callbacks.insert(&one);
        }
    }

    /// Each has been called once and is not in the set any more.
    void expectGone()
    {
        for (Leaving& one : leaving) {
            EXPECT_EQ(one.calls, 1);
            EXPECT_EQ(one.interface->callbacks.count(&one), 0u);
        }
    }

private:
    struct Leaving : InterfaceBaseCb
    {
        void onDataReceived(const uint8_t*, size_t) override { leaveAt(RECEPTION); }
        void onInterfaceState(int status) override { leaveAt(status); }

        void leaveAt(int current)
        {
            if (current == event) {
                ++calls;
                interface->callbacks.erase(this);
            }
        }

        EthernetInterface* interface = nullptr;
        int event = 0;
        std::atomic<int> calls{0};
    };

    std::array<Leaving, 3> leaving;
};
