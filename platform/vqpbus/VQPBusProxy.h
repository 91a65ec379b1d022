#pragma once

#include <vqpbus/VQPBusProxyCallback.h>

/// The process's place on the process bus, over which named processes of the logger exchange messages.
///
/// The first setCallBack() or sendTo() connects the process under the name that the environment variable
/// VQPBUS_NAME gives, "Diagnostic" if it is not set. Several processes may carry one name. A connection that is
/// lost is set up again, with every registration that was sent, for as long as the process lives.
///
/// A forked child has no place on the bus: setCallBack() and sendTo() answer false there, removeCallBack() does
/// nothing.
///
/// Threads: any. One bus thread per process calls the callbacks; setCallBack() and sendTo() start it. If the process
/// has no room for a thread, that is said once on standard error, messages are sent all the same, and the next such
/// call tries again.
class VQ_API VQPBusProxy
{
public:
    VQPBusProxy(const VQPBusProxy&) = delete;
    VQPBusProxy& operator=(const VQPBusProxy&) = delete;

    /// The one object of the process, built on first use and never destroyed: it answers in destructors of static
    /// objects too. Never null. Does not connect.
    static VQPBusProxy* getInstance();

    /// Adds a callback. May be called from inside a callback; the new one may then get the message that is being
    /// delivered.
    /// @return true if it was added; false if it was there already, or in a forked child
    bool setCallBack(VQPBusProxyCallback& callback);

    /// Removes a callback. When it returns, no call into the object is running, unless it is called from inside
    /// such a call, which is allowed. A callback that was never added is accepted.
    ///
    /// Waits for a running call, so the caller holds no lock that the call needs.
    void removeCallBack(VQPBusProxyCallback& callback);

    /// Sends a message to every process of a bus name.
    ///
    /// @param destination  bus name of the receiver, 1 to 255 bytes without NUL
    /// @param message      the message; the bus takes it over
    /// @param keep         true: a registration, to be sent again whenever a connection is set up; false: once. A
    ///                     registration is kept also if there is no bus at the moment; one that equals an earlier
    ///                     one is kept once. A bus that does not take it loses this connection, which the callbacks
    ///                     are told, and gets it with the next one
    /// @return true once the bus has the message; false if there is no bus, the bus takes nothing for 5 s, the name
    ///         is none, the message is null or longer than 65535 bytes when serialised, or in a forked child
    bool sendTo(const std::string& destination, std::unique_ptr<MessageBase> message, bool keep);

protected:
    VQPBusProxy() = default;
    ~VQPBusProxy() = default;
};
