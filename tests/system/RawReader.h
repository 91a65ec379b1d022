#pragma once

#include <support/FrameCallback.h>

#include <vqtrace/TraceMessageBuffer.h>

/// A second opener of a trace device, beside the library: sees the records as the device gives them.
class RawReader
{
public:
    explicit RawReader(const char* path);
    ~RawReader();
    RawReader(const RawReader&) = delete;
    RawReader& operator=(const RawReader&) = delete;

    /// Waits for the next frame; one with the identifier 0xFFFFFFFF if none comes.
    ReceivedFrame nextFrame();

private:
    const int fd;
    TraceMessageBuffer buffer;
};
