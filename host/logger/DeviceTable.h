#pragma once

#include <logger/BoardKind.h>
#include <logger/TraceDevice.h>
#include <logger/TransmitDevice.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace vlogger {

/// One of the devices that a board may have.
struct Device
{
    Device(EpollLoop& loop, std::string_view devicePath, const Options& options, Statistics& statistics)
        : path(devicePath), trace(loop, std::string(devicePath), options, statistics)
    {
    }

    const std::string path;
    bool missing = false;
    TraceDevice trace;
    TransmitDevice transmit;
};

/// The devices of every board; which of them are there is the board's affair.
class DeviceTable
{
public:
    DeviceTable(EpollLoop& loop, const Options& options, Statistics& statistics)
        : board(options.board), devices{Device(loop, board::MAIN_DEVICE, options, statistics),
                                        Device(loop, board::EXTENSION_DEVICE, options, statistics),
                                        Device(loop, board::COMBINED_DEVICE, options, statistics),
                                        Device(loop, board::COMBINED_FD_DEVICE, options, statistics)}
    {
    }

    /// @return null if no board has such a device
    Device* find(std::string_view path)
    {
        for (Device& device : devices) {
            if (device.path == path) {
                return &device;
            }
        }
        return nullptr;
    }

    /// The device if it can be opened for reading now, else null.
    Device* forReading(std::string_view path) { return board::canRead(board, path) ? present(path) : nullptr; }

    /// The device if it can be opened for writing now, else null.
    Device* forWriting(std::string_view path) { return board::canWrite(board, path) ? present(path) : nullptr; }

    /// The device whose trace carries what the channel receives; null if the board has none for it.
    Device* traceOf(uint8_t channel) { return find(board::traceDeviceOf(board, channel)); }

    std::array<Device, 4>& all() { return devices; }

private:
    Device* present(std::string_view path)
    {
        Device* const device = find(path);
        return device == nullptr || device->missing ? nullptr : device;
    }

    const wire::Board board;
    std::array<Device, 4> devices;
};

} // namespace vlogger
