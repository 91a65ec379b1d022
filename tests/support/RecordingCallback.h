#pragma once

#include <InterfaceBaseCb.h>
#include <support/Recorder.h>

#include <cstdint>
#include <vector>

/// An application's callback object that keeps what an interface tells it.
class RecordingCallback : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t* bytes, size_t size) override
    {
        lastPointer = bytes;
        data.add(std::vector<uint8_t>(bytes, bytes + size));
    }
    void onInterfaceState(int status) override { statuses.add(status); }

    Recorder<std::vector<uint8_t>> data;
    Recorder<int> statuses;
    const uint8_t* lastPointer = nullptr; ///< what the last onDataReceived() passed
};
