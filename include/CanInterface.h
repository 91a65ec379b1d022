#pragma once

#include <BusInterfacesExport.h>
#include <InterfaceBase.h>
#include <MsgRxHandlerCb.h>

#include <vqtrace/CANExtTraceMessage.h>
#include <vqtrace/cantype.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// One CAN channel for an application: sends single frames with one identifier and receives the frames of chosen
/// identifiers.
///
/// ```cpp
/// MyCallback callback;                       // implements InterfaceBaseCb
/// CanInterface can;
/// can.callbacks.insert(&callback);
/// can.configure({0, 0x123, CAN_STANDARD, {{0x200, CAN_EXTENDED}}});
/// MsgRxHandler::getInstance()->setOnline();  // once per process
/// callback.waitForStatus(1);                 // the devices are open
/// can.configure({0, 0x123, CAN_STANDARD, {{0x200, CAN_EXTENDED}}}); // now they are read, too
/// can.send(bytes, sizeBytes);
/// ```
///
/// The second configure() is needed because going online leaves the devices inactive until the next registration;
/// see MsgRxHandler for the whole order, and for what brings the traffic back after the logger was restarted.
///
/// States: unconfigured after construction, configured from the first configure() on. An unconfigured interface
/// sends nothing and receives nothing. Sending works without going online.
///
/// The application owns the interface and its callback objects. The interface is known to the receive dispatcher by
/// its address, so it is neither copied nor moved.
///
/// Threads: send() may be called from any thread, also from callbacks, and several at once; the transmitter
/// serialises them. configure() and the destructor belong to one thread of the application; both wait while
/// receivers are being called, so neither may run in a callback. configure() may run while others send: a frame
/// sent meanwhile takes each of channel, identifier and type from the old configuration or from the new one. No
/// thread may be inside send() when the destructor begins. Callbacks run on the receive thread with the
/// dispatcher's registry lock held: they must be quick, must not configure or destroy any interface and must not
/// take the receive thread online or offline.
///
/// A class that derives from CanInterface is destroyed only while the dispatcher is offline: it is unregistered by
/// this class's destructor, which runs after the derived part has gone, and would be called until then.
class BUSINTERFACES_API CanInterface : public InterfaceBase<CANExtTraceMessage>, private MsgRxHandlerCb
{
public:
    /// What an interface sends and receives.
    struct Configuration
    {
        /// One identifier of one kind of frame.
        struct idPair_t
        {
            uint32_t id;    ///< CAN identifier; bits 29 and 30 must be clear, or nothing is received for it
            cantype_t type; ///< 1 and 3: 29-bit identifier; other values: 11-bit identifier
        };

        uint8_t channel;                  ///< CAN channel
        uint32_t id;                      ///< identifier of the frames sent, and the first to receive
        cantype_t type;                   ///< kind of the frames sent, and of that identifier
        std::vector<idPair_t> receiveIds; ///< further identifiers to receive; may be empty
    };

    CanInterface() = default;
    CanInterface(const CanInterface&) = delete;
    CanInterface& operator=(const CanInterface&) = delete;

    /// Unregisters the interface; on return no callback is running or will run for it. This deactivates the
    /// devices, also for the interfaces that remain: each of them hears nothing more until it, or another one on a
    /// channel of its device, is configured again.
    ~CanInterface() override;

    /// Copies the configuration and registers for its identifiers: first `receiveIds` in their order, then `id`.
    ///
    /// @return always 0
    ///
    /// Registration adds up: identifiers of an earlier configuration are received as well. Calling it again with
    /// the same values is how the channel's device becomes active after going online; frames that are sent
    /// meanwhile stay as they are.
    ///
    /// Threads: the one that owns the interface. Waits while receivers are being called. Callbacks: must not call it.
    int configure(const Configuration& configuration);

    /// Sends bytes in one frame of the configured identifier and type.
    ///
    /// @param data  payload, copied before the call returns; may be null when `size` is 0
    /// @param size  bytes: at most 8 for types 0 and 1, at most 64 for types 2 and 3. Types from 4 on have no
    ///              limit: `size` modulo 256, at most 64, bytes are sent, so 256 bytes make an empty frame
    /// @return 0 once the device has taken the frame; -1 if the interface is not configured, `size` is above the
    ///         limit or the transmitter failed (already logged)
    ///
    /// May block in the device write.
    int send(const uint8_t* data, size_t size) override;

    /// Sends a message on the configured channel.
    ///
    /// @param msg  its time value becomes 0, its frame kind 2, and channel, identifier and type those of the
    ///             configuration. The identifier is cut to the width of the type that the message had before: one
    ///             that arrives with an 11-bit type loses the upper bits of a 29-bit identifier. Unchanged if the
    ///             interface is not configured
    /// @return 0 once the device has taken the frame; -1 if the interface is not configured or the transmitter
    ///         failed (already logged)
    ///
    /// May block in the device write. Writes the message to standard output first if `debugLevel` is above 0.
    int send(CANExtTraceMessage& msg) override;

    /// Tells every callback of a new state of the dispatcher: 1 online, 2 offline, 4 error, 0 anything else. Called
    /// by the dispatcher.
    void onStateChanged(MsgRxHandlerCb::handlerState_t state, const std::string& text) override;

    /// Passes a received frame record on to every callback: the whole record, its time stamp corrected to
    /// microseconds since the epoch. Called by the dispatcher.
    ///
    /// | offset | size | field, big-endian |
    /// |---|---|---|
    /// | 6 | 8 | time stamp |
    /// | 14 | 1 | channel |
    /// | 18 | 4 | identifier, bit 31 set for a 29-bit one |
    /// | 22 | | payload and what else the device tells; see docs/raw-can.md |
    void onRawReceived(const uint8_t* data, size_t size) override;

private:
    // The order and the places of these members are part of the binary interface. The first four are atomics
    // because frames are sent, from callbacks for instance, while the interface is configured again.
    std::atomic<bool> configured{false}; ///< set behind the next three, so that senders see them complete
    std::atomic<uint8_t> channel{0};
    std::atomic<uint32_t> id{0};
    std::atomic<cantype_t> type{CAN_STANDARD};
    std::vector<Configuration::idPair_t> receiveIds; ///< configure() alone uses it
};
