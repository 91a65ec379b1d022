#pragma once

#include <BusInterfacesExport.h>

#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/Mutex.h>
#include <vqutil/ThreadSafety.h>

#include <atomic>
#include <cstddef>
#include <fstream>

/// The one transmitter of a process: puts CAN frames on the buses of the logger.
///
/// Frames are written to the transmit devices, one write per frame: channels 0 to 14 to the main device
/// "/dev/vqlog-fpgab", channels 15 to 255 to the extension device "/dev/vqlog-fpgac". A board without an extension
/// sends every channel on the main device. (Receiving draws the line one channel lower: channel 14 is sent on the
/// main device and heard on the extension device.) The board is asked for its extension only once the main device
/// is open: until then every channel counts as one of the main device, whose absence send() reports.
///
/// States of a device: closed, open. The first getInstance() opens what the board has; a device that could not be
/// opened stays closed until open() is called. Nothing is opened or retried by itself, and a failed write leaves
/// the device open.
///
/// After the logger behind the devices was restarted the descriptors are dead: every send() fails until the
/// application calls close() and then open().
///
/// The object is created by the first getInstance() and destroyed at process exit, which closes the devices. Ask
/// for the pointer again rather than keeping it in objects that live until exit. A thread that sends meanwhile gets
/// its frames out until the devices are closed and -1 from then on; if it is inside send() when the object is
/// destroyed, exit does not wait for it, and the devices stay open until the process has gone.
///
/// Threads: every operation may be called from any thread. open(), close() and send() are serialised by one lock,
/// which is held while a device is opened or written; lines are logged under it. Any operation may be called from
/// receive callbacks.
class BUSINTERFACES_API CanTxHandler
{
public:
    CanTxHandler(const CanTxHandler&) = delete;
    CanTxHandler& operator=(const CanTxHandler&) = delete;

    /// The transmitter of this process.
    ///
    /// @param useOSync  true: each write returns only when the device has finished it (O_SYNC). The first caller
    ///                  decides for the life of the process; later values are ignored. CanInterface passes true.
    /// @return never null. The first call opens the devices; whether that worked is told by send(), or by open(),
    ///         which tries again what failed
    static CanTxHandler* getInstance(bool useOSync);

    /// Opens what is not open: the main device, then the extension device if the board has one.
    ///
    /// @return 0 if every device of the board is open now; -1 if one could not be opened (already logged). The
    ///         extension device is not tried when the main device fails
    ///
    /// Waits while another thread sends.
    int open();

    /// Closes the open devices. Frames of later send() calls fail until open() is called.
    ///
    /// Waits while another thread sends, however long the device keeps that thread.
    void close();

    /// Writes one frame to the device of its channel.
    ///
    /// @param msg  the frame, complete with channel, identifier and type; its time value becomes 0
    /// @return 0 once the device has taken the whole frame; -1 if the device of the channel is not open or the
    ///         write failed (already logged)
    ///
    /// Frames of one thread reach the bus in the order of the calls. Blocks while another thread sends and while
    /// the device is busy.
    int send(CANExtTraceMessage& msg);

    static int debugLevel; ///< free for the application; the library does not look at it

private:
    class Monitor;

    explicit CanTxHandler(bool withOSync);
    ~CanTxHandler();
    static void* operator new(std::size_t size);
    /// Keeps the storage: a thread that is still in send() at process exit must find the lock it holds.
    static void operator delete(void* storage) noexcept;

    int openLocked() VQ_REQUIRES_LOCK(mutex);
    void closeLocked() VQ_REQUIRES_LOCK(mutex);
    int openDevice(const char* path) const;

    static std::atomic<CanTxHandler*> pInstance;

    // The order of these members is part of the binary interface. The flags belong to `mutex`; they are atomics so
    // that a debugger's or a late thread's look at them is never a race.
    std::atomic<bool> fpgabOpen{false};
    std::atomic<bool> fpgacOpen{false};
    std::atomic<bool> extBoard{false}; ///< never cleared
    std::ofstream unused;              ///< keeps its place; nothing writes to it
    Mutex mutex;
    int fdFpgab VQ_GUARDED_BY(mutex) = -1;
    int fdFpgac VQ_GUARDED_BY(mutex) = -1;
    const bool useOSync;
};
