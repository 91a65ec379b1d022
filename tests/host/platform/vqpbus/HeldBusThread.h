#pragma once

#include "RecordingBusCallback.h"

#include <future>
#include <utility>

namespace busproxy {

/// Keeps the bus thread inside the first message that a callback gets, until release(). Lives as long as the callback
/// is registered.
class HeldBusThread
{
public:
    explicit HeldBusThread(RecordingBusCallback& callback)
    {
        callback.onMessage = [this] {
            if (std::exchange(isFirst, false)) {
                entered.set_value();
                mayLeave.get_future().wait();
            }
        };
    }
    HeldBusThread(const HeldBusThread&) = delete;
    HeldBusThread& operator=(const HeldBusThread&) = delete;

    /// Waits until the thread is inside.
    void await() { entered.get_future().wait(); }
    void release() { mayLeave.set_value(); }

private:
    std::promise<void> entered;
    std::promise<void> mayLeave;
    bool isFirst = true; ///< of the bus thread
};

} // namespace busproxy
