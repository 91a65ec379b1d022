#include <BusInterfaceBase.h>

#include <isotp/DirectLine.h>

#include <vqpbus/VQPBusProxy.h>

template <typename T, typename B>
BusInterfaceBase<T, B>::BusInterfaceBase(uint8_t canChannel, uint32_t defaultSendId)
    : defaultId(defaultSendId), channel(canChannel)
{
}

template <typename T, typename B>
BusInterfaceBase<T, B>::~BusInterfaceBase()
{
    VQPBusProxy::getInstance()->removeCallBack(*this);
}

template <typename T, typename B>
void BusInterfaceBase<T, B>::vqpBusProxyCb(const MessageBase* msg, const std::string& /*source*/,
                                           const std::string& /*destination*/)
{
    const auto* const message = dynamic_cast<const T*>(msg);
    if (message == nullptr) {
        return;
    }
    directline::toOutput("RX:", *message);
    this->on_MsgReceived(message);
}

template <typename T, typename B>
void BusInterfaceBase<T, B>::vqpBusProxyStatusCb(VQPBusProxyCallback::StatusCBType_t type, int /*code*/,
                                                 const std::string& text)
{
    if (type == VQPBusProxyCallback::STATUS_ERROR) {
        // The line carries the name that its readers look for, not the one of this class.
        directline::toError("[ERROR] MainHandler::VQPBusProxy: ", text);
    }
}

template <typename T, typename B>
int BusInterfaceBase<T, B>::sendDefaultID(const uint8_t* data, size_t size)
{
    return this->send(defaultId, data, size);
}

template <typename T, typename B>
void BusInterfaceBase<T, B>::tellCallbacks(const T* msg) const
{
    for (BusInterfaceBaseCb<T>* const callback : callbacks) {
        callback->onMessage(msg);
    }
}

template class BusInterfaceBase<CANTransportTraceMessage, MessageBase>;
