#pragma once

#include <MsgRxHandler.h>

#include <vqtrace/TraceMessageBuffer.h>

#include <atomic>
#include <memory>

/// One trace device: closed (no descriptor, no buffer, inactive), open and inactive, or open and active.
///
/// Threads: descriptor and buffer belong to the receive thread; `active` is set by whoever registers and read by
/// the receive thread once per wait, hence the atomic.
struct MsgRxHandler::Device
{
    int fd = -1;
    std::unique_ptr<TraceMessageBuffer> buffer;
    std::atomic<bool> active{false}; ///< the receive thread reads this device
};
