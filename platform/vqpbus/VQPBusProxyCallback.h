#pragma once

#include <vqtrace/MessageBase.h>

/// What the process bus calls. Implemented by whoever wants its traffic.
///
/// Threads: all calls come from the one bus thread of the process. They must be quick and copy what they keep. They
/// may send, add and remove callbacks. An exception out of one is written to standard error, in one line that
/// begins with "[ERROR] process bus: exception out of a callback: ", and the bus goes on.
class VQ_API VQPBusProxyCallback
{
public:
    /// Kind of a status report. The library reacts to 2 only.
    enum StatusCBType_t : uint32_t
    {
        STATUS_INFO = 0,    ///< connected, or connected again
        STATUS_WARNING = 1, ///< messages were dropped
        STATUS_ERROR = 2,   ///< the bus is not reachable
    };

    virtual ~VQPBusProxyCallback();

    /// A message arrived.
    /// @param message      the message; valid during the call
    /// @param source       bus name of the sender
    /// @param destination  bus name that it was sent to
    virtual void vqpBusProxyCb(const MessageBase* message, const std::string& source,
                               const std::string& destination) = 0;

    /// The state of the bus changed.
    ///
    /// | type | code | text |
    /// |---|---|---|
    /// | STATUS_INFO | 0 | "connected to the process bus", "connected to the process bus again" |
    /// | STATUS_WARNING | number of messages | "the process bus has dropped N messages for this process" |
    /// | STATUS_ERROR | errno | "no process bus: " and the reason, once until there is one |
    /// | STATUS_ERROR | ECONNRESET | "the process bus is gone" |
    virtual void vqpBusProxyStatusCb(StatusCBType_t type, int code, const std::string& text) = 0;

protected:
    VQPBusProxyCallback() = default;
    VQPBusProxyCallback(const VQPBusProxyCallback&) = default;
    VQPBusProxyCallback& operator=(const VQPBusProxyCallback&) = default;
};
