#include <MsgRxHandler.h>

#include <LogLine.h>
#include <can/CanDevices.h>
#include <can/MsgRxHandlerDevice.h>
#include <can/ProcessObject.h>
#include <can/ReceiverIndex.h>

#include <vqio/PIE.h>

#include <ios>
#include <new>

#include <pthread.h>

using logline::Level;

namespace {

constexpr std::string_view CLASS_NAME = "MsgRxHandler";

constinit ProcessObject processObject;

} // namespace

constinit std::atomic<MsgRxHandler*> MsgRxHandler::pInstance{nullptr};

/// Deletes the instance at process exit.
class MsgRxHandler::Monitor
{
public:
    Monitor() = default;
    ~Monitor()
    {
        delete pInstance.load();
        pInstance.store(nullptr);
    }
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
};

MsgRxHandler* MsgRxHandler::getInstance()
{
    // Constructed before the monitor, so the streams outlive what the instance logs while it is deleted.
    static const std::ios_base::Init streams;
    static const Monitor monitor;

    return processObject.getOrCreate(pInstance, [] { return new MsgRxHandler; });
}

MsgRxHandler::MsgRxHandler() : index(std::make_unique<ReceiverIndex>())
{
    const PIE pie;
    const MutexLock lock(receiverMutex);
    if (!candevices::hasCombinedDevice(pie)) {
        addDeviceNolock(candevices::MAIN);
    } else {
        addDeviceNolock(pie.hasCanFDDevice() ? candevices::COMBINED_FD : candevices::COMBINED);
    }
    if (candevices::hasExtensionBoard(pie)) {
        addDeviceNolock(candevices::EXTENSION);
    }
}

MsgRxHandler::~MsgRxHandler()
{
    logline::write(Level::DEBUG, CLASS_NAME, "~MsgRxHandler", "Destructor.");
    setOffline();

    const MutexLock state(stateMutex);
    // A thread that failed to start has ended unjoined, and somebody may have started one meanwhile.
    running = false;
    join();
    if (pthread_equal(threadHandle, pthread_self()) != 0) {
        // A receiver called exit(): this is the receive thread, it holds the registry lock and never comes back.
        ended = true;
        return;
    }
    const MutexLock registry(receiverMutex);
    ended = true;
}

void* MsgRxHandler::operator new(std::size_t size)
{
    return ::operator new(size);
}

void MsgRxHandler::operator delete(void* storage) noexcept
{
    processObject.retire(storage);
}

void MsgRxHandler::setOnline()
{
    const MutexLock lock(stateMutex);
    if (running || ended) {
        return;
    }
    // A thread that failed to start has cleared the flag and is ending, or has ended. It must be gone before the
    // flag is set again, which it clears once more on its way out.
    join();
    logline::write(Level::INFO, CLASS_NAME, "setOnline", "START");
    running = true;
    // A refused thread is meant to go unnoticed: the flag stays set until setOffline().
    static_cast<void>(start());
}

void MsgRxHandler::setOffline()
{
    const MutexLock lock(stateMutex);
    if (!running) {
        return;
    }
    logline::write(Level::INFO, CLASS_NAME, "setOffline", "STOP");
    running = false;
    join();
}
