#pragma once

#include <BusInterfacesExport.h>
#include <MsgRxHandlerCb.h>

#include <vqtrace/cantype.h>
#include <vqutil/Mutex.h>
#include <vqutil/Thread.h>
#include <vqutil/ThreadSafety.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

class ReceiverIndex;
class TraceMessageBuffer;

/// The one receive dispatcher of a process: reads the trace devices of the logger in a thread of its own and hands
/// each CAN frame to the receivers that registered for its channel and identifier.
///
/// An application needs three operations, getInstance(), setOnline() and setOffline(); receivers register through
/// CanInterface::configure(). The others are what these are made of.
///
/// # The order that works
///
/// 1. `configure` every CanInterface: their callbacks now hear of state changes.
/// 2. `MsgRxHandler::getInstance()->setOnline()`, once per process.
/// 3. Wait for status 1 (online) in onInterfaceState.
/// 4. `configure` every CanInterface again, from a thread of the application: opening a device leaves it
///    inactive, and only a registration on one of its channels activates it. Frames flow from here on.
///
/// A destroyed CanInterface deactivates every device on whose channels anybody ever registered, also for the
/// interfaces that remain: configure one of them per device again.
///
/// After the logger behind the devices was restarted its descriptors stay dead. What brings the traffic back:
/// `CanTxHandler::close`, `CanTxHandler::open`, then `setOffline`, `setOnline`, wait for status 1, `configure`.
///
/// # States
///
/// | state | receivers hear | left by |
/// |---|---|---|
/// | offline, no thread | | setOnline() |
/// | starting | | the devices are open: online; one cannot be opened: failed |
/// | online | ONLINE | setOffline() |
/// | failed | ERROR, then OFFLINE | by itself: the thread ends, offline again; setOnline() makes a new attempt |
/// | stopping | OFFLINE | by itself: offline |
///
/// # Devices
///
/// | device | on boards of | channels |
/// |---|---|---|
/// | "/dev/vqlog-fpgab" | any type but 16 and 112 | 0 to 13 |
/// | "/dev/vqlog-fpgac" | any type, with extension board | 14 to 255 |
/// | "/dev/vqlog-fpgame" | type 16 or 112 with CAN FD device | all |
/// | "/dev/vqlog-fpgam" | type 16 or 112 without CAN FD device | all |
///
/// An open device is read only while it is active. What arrives at an inactive one waits in the device, and while
/// it waits the receive thread is kept busy without reading it.
///
/// The wait for the devices can watch descriptors below FD_SETSIZE (1024) only: in a process that has more files
/// open, a device whose descriptor lies above counts as one that cannot be opened.
///
/// # Threads
///
/// Registration may go on from any thread while frames arrive; it counts from the next frame on. Receivers are
/// called on the receive thread, with the registry lock held: they must return quickly and must not register,
/// unregister, configure or destroy a CanInterface, call setOnline(), setOffline() or exit(). They may send. No
/// frame is copied on its way to them.
///
/// A VQException that leaves onRawReceived is logged. It costs the frame's remaining receivers their call, and the
/// frames behind it wait for the device's next reading. Any other exception out of onRawReceived, and every one out
/// of onStateChanged, ends the process.
///
/// The object lives from the first getInstance() to the exit of the process, which stops the thread. Destructors of
/// static objects may use it later all the same, if they ask getInstance() anew; a CanInterface does. They must not
/// call setOnline(): what they get then is never destroyed, and nobody would stop its thread.
class BUSINTERFACES_API MsgRxHandler : public Thread
{
public:
    MsgRxHandler(const MsgRxHandler&) = delete;
    MsgRxHandler& operator=(const MsgRxHandler&) = delete;

    /// Stops the thread and waits for it. Reached at process exit.
    ~MsgRxHandler() override;

    /// Body of the receive thread; runs through setOnline() only.
    void threadCode() override;

    /// The dispatcher of this process. The first call asks the board for its devices and opens nothing.
    /// @return never null
    ///
    /// Threads: any, also for the first call.
    static MsgRxHandler* getInstance();

    /// Starts the receive thread, which opens the devices and reports ONLINE, or ERROR and OFFLINE. Does nothing
    /// while one is running. Waits for the end of a thread that failed to start before.
    ///
    /// A refusal of the system to create a thread is not reported; no state change follows then. setOffline() and
    /// setOnline() try again.
    ///
    /// Threads: any but the receive thread. Callbacks: must not call it.
    void setOnline();

    /// Stops the receive thread and waits for its end: at most one wait of 300 ms, the frames that were read, and
    /// the receivers' own time. On return the devices are closed, OFFLINE has been reported and no receiver is
    /// called any more. Does nothing while no thread is running; after a failed start the thread may then still be
    /// on its way to report OFFLINE.
    ///
    /// Threads: any but the receive thread. Callbacks: must not call it.
    void setOffline();

    /// Adds a receiver for one identifier of one channel, and activates the channel's device. A second registration
    /// of the same kind only activates.
    ///
    /// @param channel   CAN channel
    /// @param id        identifier; not masked: one with bit 29 or 30 set never matches a frame
    /// @param type      1 and 3 stand for the 29-bit identifier `id`, every other value for the 11-bit one
    /// @param receiver  not null; not owned; must be unregistered before it is destroyed
    ///
    /// Threads: any. Waits while receivers are being called. Callbacks: must not call it.
    void registerCanMessage(unsigned char channel, unsigned int id, cantype_t type, MsgRxHandlerCb* receiver);

    /// Removes a receiver from everything; on return it is not called any more. A receiver that is not registered
    /// is fine.
    ///
    /// Deactivates the device of every channel that was ever registered, whoever still listens there, until the
    /// next registration on that channel.
    ///
    /// Threads: any. Waits while receivers are being called. Callbacks: must not call it.
    void unregisterReceiver(MsgRxHandlerCb* receiver);

    /// Calls onRawReceived of each member of a set, in ascending pointer order, under the registry lock.
    void informMessageReceivers(const std::set<MsgRxHandlerCb*>& set, const unsigned char* data, size_t length);

    /// Calls onStateChanged of every receiver, in ascending pointer order, under the registry lock.
    void informStateChangedReceivers(MsgRxHandlerCb::handlerState_t state, const std::string& text);

    /// Adds a closed device; keeps the one that is there already under this path. Construction only.
    void addDeviceNolock(const char* path);

    /// Path of the device from which a channel is received, whether or not the board has it. Asks the board anew.
    const char* getDeviceNameForCanChannel(unsigned char channel) const;

    /// Lets the receive thread read the device of a channel, or not. Nothing happens, silently, if the board has no
    /// device for the channel.
    void activateDeviceByCanChannel(unsigned char channel, bool active) const;

    /// Closes and opens every device, all inactive, and reads the clock offsets. A clock that is not synchronised
    /// (logged) gets the offset 0.
    ///
    /// @return 0; -1 if one cannot be opened, with the reason in errno, EMFILE for a descriptor of FD_SETSIZE or
    ///         above (logged): then none is open and no offset was read
    /// @throws whatever but VQException the platform's clock correction throws; the devices stay open then
    ///
    /// Threads: the receive thread only.
    int openDevices();

    /// Closes every device. Threads: the receive thread only.
    void closeDevices();

    /// Dispatches every complete record in a buffer, its time stamp corrected by the offset of the buffer's device.
    /// Records that are no CAN frames are skipped.
    ///
    /// Threads: the receive thread only.
    void processMessages(TraceMessageBuffer& buffer);

    /// Hands one CAN frame record to its receivers. A frame that nobody registered for, or one too short to hold
    /// channel and identifier, is dropped without a line.
    ///
    /// @param begin, end  bounds of the record
    /// Threads: the receive thread only.
    void processCanMessage(const unsigned char* begin, const unsigned char* end);

private:
    class Monitor;
    struct Device;

    MsgRxHandler();
    static void* operator new(std::size_t size);
    /// Keeps the storage: a thread that is inside an operation at process exit must find the locks and `ended`.
    static void operator delete(void* storage) noexcept;

    static std::atomic<MsgRxHandler*> pInstance;
    static constexpr int debug = 1; ///< no operation looks at it

    // The order of these members is part of the binary interface.

    Mutex receiverMutex; ///< guards the registry; held while receivers are called
    Mutex stateMutex;    ///< serialises starting and stopping; never taken by the receive thread

    // Filled at construction, then fixed; what a device holds belongs to the receive thread.
    std::map<std::string, std::unique_ptr<Device>> devices;
    uint64_t fpgabOffset = 0;
    uint64_t fpgacOffset = 0;

    /// Whoever registered: the audience of state changes.
    std::set<MsgRxHandlerCb*> receivers VQ_GUARDED_BY(receiverMutex);
    /// Channel, identifier key, receivers. Entries are never removed.
    std::map<unsigned char, std::map<unsigned int, std::set<MsgRxHandlerCb*>>>
        channelReceivers VQ_GUARDED_BY(receiverMutex);

    /// What `channelReceivers` holds, for the receive thread, which looks the receivers up without the lock.
    const std::unique_ptr<ReceiverIndex> index;
    /// The destructor has come this far; whoever waited for a lock gets nothing done.
    std::atomic<bool> ended{false};
};
