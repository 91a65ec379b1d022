#pragma once

#include <BusInterfaceBaseCb.h>
#include <BusInterfacesExport.h>

#include <vqpbus/VQPBusProxyCallback.h>
#include <vqtrace/CANTransportTraceMessage.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// Base of the interfaces that exchange whole messages of type T on one channel and accept messages of type B to
/// send. As a process-bus callback it also takes messages of type T from the bus, if the application adds it there
/// with VQPBusProxy::setCallBack(); the library does not.
///
/// The application owns the interface and its callback objects. It adds and removes its own pointers in
/// `callbacks`; every message calls each of them once, in ascending pointer order. An empty set makes every message
/// a no-op.
///
/// The library contains this template for CANTransportTraceMessage and MessageBase; see CanTP_ISO_Interface.
///
/// Threads: `callbacks` is not locked. Change it only while no message can arrive, for instance before configure().
template <typename T, typename B>
class BusInterfaceBase : public VQPBusProxyCallback
{
public:
    /// Removes the interface from the process bus, added or not. On return the bus thread is not in it. A class
    /// derived from this one that was added to the bus removes itself in its own destructor first.
    ~BusInterfaceBase() override;
    BusInterfaceBase(const BusInterfaceBase&) = delete;
    BusInterfaceBase& operator=(const BusInterfaceBase&) = delete;

    /// Takes a message from the process bus: a T is written to standard output behind "RX:" and passed to
    /// on_MsgReceived(); anything else, a null pointer included, is ignored.
    void vqpBusProxyCb(const MessageBase* msg, const std::string& source, const std::string& destination) override;

    /// Writes a bus error (type 2) to standard error; ignores other types.
    void vqpBusProxyStatusCb(VQPBusProxyCallback::StatusCBType_t type, int code, const std::string& text) override;

    /// Sends bytes with an identifier.
    /// @return 0 on success, -1 on failure; the derived class says which
    virtual int send(unsigned int id, const uint8_t* data, size_t size) = 0;

    /// Sends a message.
    /// @return as above
    virtual int send(const B* msg) = 0;

    /// Sends bytes with the default identifier.
    /// @return as above
    virtual int sendDefaultID(const uint8_t* data, size_t size);

    /// Passes a message to the callbacks.
    virtual void on_MsgReceived(const T* msg) = 0;

    // The order of the members is part of the binary interface.
    std::set<BusInterfaceBaseCb<T>*> callbacks; ///< whom to tell; not owned

protected:
    BusInterfaceBase(uint8_t canChannel, uint32_t defaultSendId);

    /// Calls onMessage of every callback.
    void tellCallbacks(const T* msg) const;

private:
    [[maybe_unused]] uint32_t reservedNumber1 = 0;
    std::vector<uint32_t> reservedNumbers;

protected:
    const uint32_t defaultId; ///< identifier of sendDefaultID()

private:
    [[maybe_unused]] uint32_t reservedNumber2 = 0;
    [[maybe_unused]] uint32_t reservedNumber3 = 0;

protected:
    const uint8_t channel; ///< CAN channel

private:
    std::string reservedText;
};

extern template class BUSINTERFACES_API BusInterfaceBase<CANTransportTraceMessage, MessageBase>;
