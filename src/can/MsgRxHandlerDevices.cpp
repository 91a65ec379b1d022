#include <MsgRxHandler.h>

#include <LogLine.h>
#include <can/CanDevices.h>
#include <can/MsgRxHandlerDevice.h>

#include <kdrw/TimeTickOffsetReader.h>
#include <vqio/PIE.h>
#include <vqutil/LogUtil.h>

#include <cerrno>
#include <ios>

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

using logline::Level;

namespace {

constexpr std::string_view CLASS_NAME = "MsgRxHandler";
constexpr size_t READ_BUFFER_BYTES = 0x10000;

/// Opens a trace device for the receive thread's wait.
/// @return descriptor that fits into an fd_set; -1 with errno set
int openForWatching(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd >= FD_SETSIZE) {
        // pselect() cannot watch it; FD_SET would write behind the set.
        ::close(fd);
        errno = EMFILE;
        return -1;
    }
    return fd;
}

/// @return the offset of a device's clock; 0, after a line, if there is none
uint64_t offsetOf(const TimeTickOffsetReader& reader, const char* deviceName)
{
    try {
        return reader.getDeviceOffset(deviceName);
    } catch (const VQException&) {
        logline::write(Level::ERROR, CLASS_NAME, "openDevices", deviceName, " is not synchronized");
        return 0;
    }
}

} // namespace

void MsgRxHandler::addDeviceNolock(const char* path)
{
    devices.emplace(path, std::make_unique<Device>());
}

const char* MsgRxHandler::getDeviceNameForCanChannel(unsigned char channel) const
{
    const PIE pie;
    if (candevices::hasCombinedDevice(pie)) {
        return pie.hasCanFDDevice() ? candevices::COMBINED_FD : candevices::COMBINED;
    }
    return channel < candevices::FIRST_EXTENSION_RX_CHANNEL ? candevices::MAIN : candevices::EXTENSION;
}

void MsgRxHandler::activateDeviceByCanChannel(unsigned char channel, bool active) const
{
    const char* const path = getDeviceNameForCanChannel(channel);
    const auto found = devices.find(path);
    if (found == devices.end()) {
        return;
    }
    logline::write(Level::INFO, CLASS_NAME, "activateDeviceByCanChannel", "Set device, name=", path,
                   ", active=", std::boolalpha, active);
    found->second->active = active;
}

void MsgRxHandler::closeDevices()
{
    logline::write(Level::INFO, CLASS_NAME, "closeDevices", "Close ", devices.size(), " devices.");
    for (const auto& [path, device] : devices) {
        device->buffer.reset();
        device->active = false;
        static_cast<void>(::close(device->fd)); // of a closed device too: the result does not matter
        device->fd = -1;
    }
}

int MsgRxHandler::openDevices()
{
    closeDevices();
    for (const auto& [path, device] : devices) {
        logline::write(Level::INFO, CLASS_NAME, "openDevices", "Open device=", path);
        const int fd = openForWatching(path);
        if (fd < 0) {
            const int error = errno; // closing what is closed already changes it
            logline::write(Level::ERROR, CLASS_NAME, "openDevices", "Can't open device=", path);
            closeDevices();
            errno = error;
            return -1;
        }
        // Inactive even if a receiver registered before: it takes a registration after this to read the device.
        device->active = false;
        device->fd = fd;
        device->buffer = std::make_unique<TraceMessageBuffer>(fd, READ_BUFFER_BYTES, &LogUtil::logMutex);
        device->buffer->name = path;
        logline::write(Level::INFO, CLASS_NAME, "openDevices", "Open device, name=", path, ", fd=", fd);
    }

    // "fpgab" is the clock of whatever device a board has in its place.
    const TimeTickOffsetReader offsetReader;
    fpgabOffset = offsetOf(offsetReader, "fpgab");
    const PIE pie;
    if (candevices::hasExtensionBoard(pie)) {
        fpgacOffset = offsetOf(offsetReader, "fpgac");
    }
    logline::write(Level::INFO, CLASS_NAME, "openDevices", "#################### fpgabOffset=", fpgabOffset);
    logline::write(Level::INFO, CLASS_NAME, "openDevices", "#################### fpgacOffset=", fpgacOffset);
    return 0;
}
