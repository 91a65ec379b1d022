#pragma once

#include <vqutil/Export.h>
#include <vqutil/VQException.h>

#include <cstdint>
#include <string>

/// Tells how far the clocks of the trace devices are from system time.
///
/// Threads: any.
class VQ_API TimeTickOffsetReader
{
public:
    /// @param deviceName  "fpgab" (every main device) or "fpgac" (the extension device)
    /// @return microseconds to add to a time stamp of that device to get the system time, microseconds since
    ///         the epoch (CLOCK_REALTIME); asked anew at each call
    /// @throws VQException if the device is unknown, its clock is not synchronised, or the logger does not answer
    uint64_t getDeviceOffset(const std::string& deviceName) const;
};
