#pragma once

#include <BusInterfacesExport.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

/// What the receive dispatcher MsgRxHandler calls.
///
/// Threads: the dispatcher's receive thread, with its registry lock held. Return quickly; never register or
/// unregister from inside a call, the lock is not recursive, and never take the dispatcher online or offline.
/// Exceptions: see MsgRxHandler.
class BUSINTERFACES_API MsgRxHandlerCb
{
public:
    /// State of the dispatcher as its receivers see it.
    enum handlerState_t : uint32_t
    {
        UNDEFINED = 0,
        ONLINE = 1,  ///< the devices are open
        OFFLINE = 2, ///< the devices are closed, the receive thread is about to end
        ERROR = 3,   ///< a device could not be opened; OFFLINE follows
    };

    virtual ~MsgRxHandlerCb() = default;

    /// The dispatcher's state changed.
    /// @param text  more about it; empty
    virtual void onStateChanged(handlerState_t state, const std::string& text) = 0;

    /// A CAN frame arrived for a channel and identifier that this receiver registered.
    ///
    /// @param data  the whole frame record with corrected time stamp, valid during the call only
    /// @param size  its length in bytes, at least 22
    virtual void onRawReceived(const uint8_t* data, size_t size) = 0;
};

/// Writes "UNDEFINED", "ONLINE", "OFFLINE", "ERROR", or "invalid handler state" for any other value.
BUSINTERFACES_API std::ostream& operator<<(std::ostream& stream, MsgRxHandlerCb::handlerState_t state);
