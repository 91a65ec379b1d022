#include <CanTxHandler.h>

#include <LogLine.h>
#include <can/CanDevices.h>
#include <can/ProcessObject.h>

#include <vqio/PIE.h>
#include <vqutil/writeAll.h>

#include <cerrno>
#include <cstring>
#include <ios>
#include <new>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using logline::Level;

namespace {

constexpr std::string_view CLASS_NAME = "CanTxHandler";

constinit ProcessObject processObject;

} // namespace

int CanTxHandler::debugLevel = 0;
constinit std::atomic<CanTxHandler*> CanTxHandler::pInstance{nullptr};

/// Deletes the instance at process exit.
class CanTxHandler::Monitor
{
public:
    Monitor() = default;
    ~Monitor()
    {
        // Null comes last: until then a late caller gets the old object, which answers -1, and opens nothing anew.
        delete pInstance.load();
        pInstance.store(nullptr);
    }
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
};

CanTxHandler* CanTxHandler::getInstance(bool useOSync)
{
    // Constructed before the monitor, so the streams outlive what the instance may log while it is deleted.
    static const std::ios_base::Init streams;
    static const Monitor monitor;

    return processObject.getOrCreate(pInstance, [useOSync] {
        auto* const instance = new CanTxHandler(useOSync);
        // Before anybody else gets the object: nobody can meet a transmitter whose devices are about to be opened.
        static_cast<void>(instance->open());
        return instance;
    });
}

CanTxHandler::CanTxHandler(bool withOSync) : useOSync(withOSync) {}

CanTxHandler::~CanTxHandler()
{
    // A sender that is blocked in the device holds the lock; exit must not wait for it. The system closes then.
    if (mutex.tryLock()) {
        closeLocked();
        mutex.unlock();
    }
}

void* CanTxHandler::operator new(std::size_t size)
{
    return ::operator new(size);
}

void CanTxHandler::operator delete(void* storage) noexcept
{
    processObject.retire(storage);
}

int CanTxHandler::open()
{
    const MutexLock lock(mutex);
    return openLocked();
}

int CanTxHandler::openLocked()
{
    const PIE pie;
    if (!fpgabOpen) {
        logline::write(Level::DEBUG, CLASS_NAME, "open", "open device=", candevices::MAIN, " with O_SYNC flag? ",
                       std::boolalpha, useOSync);
        const int fd = openDevice(candevices::MAIN);
        if (fd < 0) {
            fpgabOpen = false;
            return -1;
        }
        fdFpgab = fd;
        fpgabOpen = true;
    }
    if (!fpgacOpen && candevices::hasExtensionBoard(pie)) {
        logline::write(Level::DEBUG, CLASS_NAME, "open", "ext board ", pie.getDeviceCode(),
                       " detected, open device=", candevices::EXTENSION);
        extBoard = true;
        const int fd = openDevice(candevices::EXTENSION);
        if (fd < 0) {
            fpgacOpen = false;
            return -1;
        }
        fdFpgac = fd;
        fpgacOpen = true;
    }
    return 0;
}

int CanTxHandler::openDevice(const char* path) const
{
    const int fd = ::open(path, O_WRONLY | (useOSync ? O_SYNC : 0));
    if (fd < 0) {
        logline::write(Level::ERROR, CLASS_NAME, "open", "can't open device = ", path);
    }
    return fd;
}

void CanTxHandler::close()
{
    const MutexLock lock(mutex);
    closeLocked();
}

void CanTxHandler::closeLocked()
{
    if (fpgabOpen) {
        if (fdFpgab >= 0) {
            ::close(fdFpgab);
            fdFpgab = -1;
        }
        fpgabOpen = false;
    }
    if (fpgacOpen) {
        if (fdFpgac >= 0) {
            ::close(fdFpgac);
            fdFpgac = -1;
        }
        fpgacOpen = false;
    }
}

int CanTxHandler::send(CANExtTraceMessage& msg)
{
    const MutexLock lock(mutex);
    int fd = fdFpgab;
    if (extBoard && msg.channel > candevices::LAST_MAIN_TX_CHANNEL) {
        if (!fpgacOpen) {
            logline::write(Level::ERROR, CLASS_NAME, "send", "FPGAC-Device is not open!");
            return -1;
        }
        fd = fdFpgac;
    } else if (!fpgabOpen) {
        logline::write(Level::ERROR, CLASS_NAME, "send", "FGPAB/M-Device is not open!");
        return -1;
    }

    msg.time = 0;
    std::vector<uint8_t> record;
    msg.createByteArray(record, true, false);
    const int result = writeAll(fd, record.data(), record.size());
    if (result < 0) {
        const int error = errno; // the log lock may change it
        logline::write(Level::ERROR, CLASS_NAME, "send", "Can't write data, err=", result,
                       ", errStr=", std::strerror(error));
        return -1;
    }
    return 0;
}
