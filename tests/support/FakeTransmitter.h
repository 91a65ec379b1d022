#pragma once

#include <support/Recorder.h>

#include <vqtrace/CANExtTraceMessage.h>

#include <atomic>
#include <functional>

/// Stands in for CanTxHandler: a test that lists FakeTransmitter.cpp among its sources gets this transmitter. Keeps
/// every frame; `onFrame` may answer it before the transmission returns.
class FakeTransmitter
{
public:
    static FakeTransmitter& instance();

    /// Forgets what the test before left.
    void reset();

    Recorder<CANExtTraceMessage> frames;
    std::atomic<bool> records{true};   ///< false: frames are not kept
    std::atomic<bool> useOSync{false}; ///< what the last getInstance asked for
    std::atomic<int> failFrom{-1};     ///< the frame with this index and all later ones fail; below 0: none does
    /// Runs inside the transmission, after the frame was kept; its result is that of the transmission.
    std::function<int(const CANExtTraceMessage&)> onFrame;

    int transmit(const CANExtTraceMessage& message);

private:
    std::atomic<int> count{0};
};
