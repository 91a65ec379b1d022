#pragma once

#include <InterfaceBaseCb.h>

#include <support/Recorder.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <vector>

/// One frame as it reached onDataReceived, taken apart.
struct ReceivedFrame
{
    uint64_t timestampUs = 0;
    uint8_t channel = 0;
    uint8_t type = 0;
    uint32_t id = 0;
    bool isExtended = false;
    std::vector<uint8_t> payload;

    /// @throws std::invalid_argument if the bytes are no frame record
    static ReceivedFrame of(const uint8_t* data, size_t size);
};

/// Keeps what an interface tells, in order, and lets a test wait for it.
///
/// Threads: any. The interface is destroyed first.
class FrameCallback : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t* data, size_t size) override { frames.add(ReceivedFrame::of(data, size)); }
    void onInterfaceState(int status) override { statuses.add(status); }

    /// Waits for the oldest status that was not taken yet and takes it.
    /// @return nothing if none arrives
    std::optional<int> nextStatus() { return next(statuses, statusesTaken); }

    /// Waits for the oldest frame that was not taken yet and takes it.
    /// @return nothing if none arrives
    std::optional<ReceivedFrame> nextFrame() { return next(frames, framesTaken); }

    Recorder<int> statuses;
    Recorder<ReceivedFrame> frames;

private:
    template <typename Event>
    static std::optional<Event> next(const Recorder<Event>& recorder, size_t& taken)
    {
        if (!recorder.waitForCount(taken + 1)) {
            return std::nullopt;
        }
        return recorder.all()[taken++];
    }

    size_t statusesTaken = 0;
    size_t framesTaken = 0;
};
