#include <vqpbus/VQPBusProxy.h>

#include "vqpbus/BusClient.h"

namespace {

/// What the declaration leaves to the implementation is in BusClient.
class HostProxy : public VQPBusProxy
{
};

} // namespace

VQPBusProxy* VQPBusProxy::getInstance()
{
    static auto* const proxy = new HostProxy;
    return proxy;
}

bool VQPBusProxy::setCallBack(VQPBusProxyCallback& callback)
{
    return vqhost::BusClient::instance().addCallback(callback);
}

void VQPBusProxy::removeCallBack(VQPBusProxyCallback& callback)
{
    vqhost::BusClient::instance().removeCallback(callback);
}

bool VQPBusProxy::sendTo(const std::string& destination, std::unique_ptr<MessageBase> message, bool keep)
{
    return vqhost::BusClient::instance().sendTo(destination, message.get(), keep);
}
