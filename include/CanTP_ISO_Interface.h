#pragma once

#include <BusInterfaceBase.h>
#include <BusInterfacesExport.h>
#include <CanIsoTpHandler.h>
#include <CanIsoTpHandlerCallback.h>

#include <vqtrace/CANTransportTraceMessage.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// ISO 15765-2 transport on one CAN channel for an application: sends and receives messages of 1 to 4095 bytes with
/// 11-bit identifiers, normal addressing and padded frames.
///
/// ```cpp
/// MyCallback callback;                            // implements BusInterfaceBaseCb<CANTransportTraceMessage>
/// CanTP_ISO_Interface tester(0, {0x7E8}, 0x7E0);  // channel 0, receives 0x7E8, sends 0x7E0
/// tester.callbacks.insert(&callback);
/// tester.configure();
/// tester.sendDefaultID(request, sizeBytes);       // the answer comes to callback.onMessage
/// ```
///
/// States: unconfigured after construction, configured from configure() on. An unconfigured interface sends
/// nothing.
///
/// The interface owns a CanIsoTpHandler, whose class comment tells what the protocol does and where its limits are.
/// send() returning 0 means that the message was taken, not that it arrived: the status reports of the handler,
/// which tell of aborted transfers, are not passed on. An application that needs them, or extended addressing,
/// 29-bit identifiers or frames of minimal length, uses a CanIsoTpHandler with a callback of its own instead.
///
/// Threads: send() and sendDefaultID() may be called from any thread, also from onMessage, and several at once;
/// they wait while a burst of frames is being sent. configure() and the destructor belong to one thread of the
/// application and never to a callback. onMessage runs on the process-bus thread with the handler's callback lock
/// held.
class BUSINTERFACES_API CanTP_ISO_Interface : public BusInterfaceBase<CANTransportTraceMessage, MessageBase>,
                                              public CanIsoTpHandlerCallback
{
public:
    /// Creates the handler, which registers its receive identifier with the process-bus peer "TraceLogger" for the
    /// process "Diagnostic".
    ///
    /// @param canChannel     CAN channel
    /// @param ids            the first element is the identifier to receive; the rest is not used
    /// @param defaultSendId  identifier of sendDefaultID() and of the handler's flow control frames
    /// @throws std::out_of_range if `ids` is empty
    /// @throws VQException if the handler cannot be created, see CanIsoTpHandler
    CanTP_ISO_Interface(unsigned char canChannel, const std::vector<unsigned int>& ids, unsigned int defaultSendId);

    /// If configured: waits, however long, until the queued messages are sent or dropped, then ends the worker. On
    /// return no callback is running or will run.
    ~CanTP_ISO_Interface() override;
    CanTP_ISO_Interface(const CanTP_ISO_Interface&) = delete;
    CanTP_ISO_Interface& operator=(const CanTP_ISO_Interface&) = delete;

    /// Sets up the handler and starts its worker.
    /// @return always 0
    ///
    /// Calling it again changes nothing: the first worker goes on.
    int configure();

    /// Queues a message.
    ///
    /// @param id    11-bit identifier of its frames
    /// @param data  payload, copied before the call returns
    /// @param size  1 to 4095 bytes
    /// @return 0 if the message was taken; -1 if the interface is not configured (silently), or the size is out of
    ///         range (logged)
    int send(unsigned int id, const uint8_t* data, size_t size) override;

    /// Not supported.
    /// @return always -1
    int send(const MessageBase* msg) override;

    /// Passes a message of the process bus to the callbacks.
    void on_MsgReceived(const CANTransportTraceMessage* msg) override;

    /// Writes a message that the handler received to standard output and passes it to the callbacks.
    void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) override;

    /// Writes a line that a status was reported; what it says is not passed on.
    void canIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::StatusCBType_t type, int code,
                                 const std::string& text) override;

private:
    // The order of these members is part of the binary interface.
    std::atomic<bool> configured{false};
    std::unique_ptr<CanIsoTpHandler> handler;
};
