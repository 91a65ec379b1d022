#pragma once

#include <InterfaceBaseCb.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

/// Takes what the interface tells, on whichever thread it does, and keeps it until the main thread asks.
class Events : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t* data, size_t size) override;
    void onInterfaceState(int status) override;

    /// The next change of state or the next data as a line to print. Bytes of a stream may come in pieces: as many
    /// as `wanted` are put together.
    /// @throws std::runtime_error if nothing comes for a long time
    std::string next(size_t wanted = 1);

    /// True if there has been a new activity figure (status 5) since the last call.
    bool takeFigure();

private:
    struct event_t
    {
        int status; ///< 0: data
        std::string data;
    };

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<event_t> events;
    bool hasFigure = false;
};
