#pragma once

#include <vqutil/Export.h>

#include <cstdint>
#include <iosfwd>

/// What the board says about itself. It does not change while a process runs: devices are chosen by it once, so a
/// later answer would not fit them.
///
/// Threads: any. The first object of a process may have to ask the logger; later ones are cheap.
class VQ_API PIE
{
public:
    /// What is fitted on the extension slot. Values other than those named may occur.
    enum deviceCode_t : uint32_t
    {
        DEVICE_NONE = 0,           ///< nothing
        DEVICE_EXTENSION_BOARD = 4 ///< a second board with its own FPGA and CAN channels
    };

    /// Asks the board. A board that does not answer counts as a plain one (type 1, nothing on the slot, no CAN FD
    /// device) for the life of the process, also if it answers later; the reason is said once on standard error.
    PIE();

    /// What is fitted on the extension slot.
    deviceCode_t getDeviceCode() const { return deviceCode; }

    /// Type code of the board; 16 and 112 are the boards whose CAN devices all sit on one FPGA.
    uint32_t getBoardType() const { return boardType; }

    /// True if the board has a CAN FD device.
    bool hasCanFDDevice() const { return canFdDevice; }

private:
    deviceCode_t deviceCode;
    uint32_t boardType;
    bool canFdDevice;
};

/// Writes the code as a decimal number. The stream's format flags have no effect and stay.
VQ_API std::ostream& operator<<(std::ostream& stream, PIE::deviceCode_t code);
