#pragma once

#include <vqtrace/CANExtTraceMessage.h>

#include <cstdint>
#include <vector>

/// Frames for tests of raw CAN.
namespace testframes {

/// A standard frame of three bytes, 0x11 0x22 0x33, with identifier 0x123, as an application fills it.
inline CANExtTraceMessage onChannel(uint8_t channel)
{
    const uint8_t payload[] = {0x11, 0x22, 0x33};
    return CANExtTraceMessage(11, 4711, channel, CAN_FRAME_TX, CAN_STATE_OK, CAN_STANDARD, 3, 0x123, payload);
}

/// The bytes that stand for onChannel(`channel`) on a device.
inline std::vector<uint8_t> bytesOnChannel(uint8_t channel)
{
    return {0, 26, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, channel, 2, 0, 0, 0, 0, 0x01, 0x23, 3, 0x11, 0x22, 0x33};
}

} // namespace testframes
