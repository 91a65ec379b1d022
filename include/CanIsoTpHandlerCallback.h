#pragma once

#include <BusInterfacesExport.h>

#include <vqtrace/CANTransportTraceMessage.h>

#include <cstdint>
#include <string>

/// What a CanIsoTpHandler tells its owner. The owner implements it and adds the object with
/// CanIsoTpHandler::setCallback(); the handler never owns it.
///
/// Threads: canIsoTpHandlerCb runs on the process-bus thread; canIsoTpHandlerStatusCb on whichever thread found the
/// cause: the handler's worker, the process-bus thread or a thread inside send(). All calls of one handler are
/// serialised by its callback lock, which is held meanwhile. A status that a callback itself causes is delivered
/// inside that callback.
///
/// Allowed in a callback: send() of this handler, for instance the answer to a request. Be quick: the bus thread
/// serves every handler of the process, and send() waits while the worker is sending a burst.
/// Not allowed: setCallback() and removeCallback() of this handler (they take the lock that is held), stop() and
/// the destruction of the handler (they wait for this very call), exceptions, and a send() through another handler
/// whose callbacks send through this one (each would wait for the other's lock: hand the message to a thread of
/// your own).
class BUSINTERFACES_API CanIsoTpHandlerCallback
{
public:
    /// Kind of a status report.
    enum StatusCBType_t : uint32_t
    {
        STATUS_INFO = 0,    ///< the worker started or ended: "thread started", "thread stopped"; code 0
        STATUS_WARNING = 1, ///< a transfer takes longer or a message waits; code 0, the text says which
        STATUS_ERROR = 2,   ///< a transfer was aborted; code is a CanIsoTpHandler::errorCode_t, text its text
    };

    virtual ~CanIsoTpHandlerCallback();

    /// A complete message arrived.
    ///
    /// @param msg  message identifier 0x8014, receive time, payload, and the handler's receive identifier and type;
    ///             valid during the call only
    virtual void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) = 0;

    /// The handler has something to report.
    ///
    /// | type | code | text | meaning |
    /// |---|---|---|---|
    /// | 0 | 0 | thread started | the worker runs |
    /// | 0 | 0 | thread stopped | the worker has ended |
    /// | 1 | 0 | receive FC with state = wait | the peer asks for more time; the one-second limit starts again |
    /// | 1 | 0 | can't process send queue, wait for FC frame | a transfer waits for its peer; the rest is queued |
    /// | 1 | 0 | can't process send queue, wait for some frame | send() queued its message behind a transfer |
    /// | 2 | error | text of the error | aborted: the part received and every queued message are gone |
    virtual void canIsoTpHandlerStatusCb(StatusCBType_t type, int code, const std::string& text) = 0;

protected:
    CanIsoTpHandlerCallback() = default;
    CanIsoTpHandlerCallback(const CanIsoTpHandlerCallback&) = default;
    CanIsoTpHandlerCallback& operator=(const CanIsoTpHandlerCallback&) = default;
};
