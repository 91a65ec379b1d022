#include <support/FakeBus.h>

namespace {

class Proxy : public VQPBusProxy
{
};

} // namespace

VQPBusProxy* VQPBusProxy::getInstance()
{
    static Proxy proxy;
    return &proxy;
}

bool VQPBusProxy::setCallBack(VQPBusProxyCallback& callback)
{
    return FakeBus::instance().add(callback);
}

void VQPBusProxy::removeCallBack(VQPBusProxyCallback& callback)
{
    FakeBus::instance().remove(callback);
}

bool VQPBusProxy::sendTo(const std::string& destination, std::unique_ptr<MessageBase> message, bool keep)
{
    return FakeBus::instance().take(destination, std::move(message), keep);
}

FakeBus& FakeBus::instance()
{
    static FakeBus bus;
    return bus;
}

void FakeBus::forEach(const std::function<void(VQPBusProxyCallback&)>& call)
{
    const std::lock_guard lock(mutex);
    const std::set<VQPBusProxyCallback*> present = callbacks;
    for (VQPBusProxyCallback* const callback : present) {
        call(*callback);
    }
}

void FakeBus::deliver(const MessageBase* message, const std::string& source, const std::string& destination)
{
    forEach([&](VQPBusProxyCallback& callback) { callback.vqpBusProxyCb(message, source, destination); });
}

void FakeBus::reportStatus(VQPBusProxyCallback::StatusCBType_t type, int code, const std::string& text)
{
    forEach([&](VQPBusProxyCallback& callback) { callback.vqpBusProxyStatusCb(type, code, text); });
}

bool FakeBus::has(const VQPBusProxyCallback& callback) const
{
    const std::lock_guard lock(mutex);
    return callbacks.count(const_cast<VQPBusProxyCallback*>(&callback)) != 0;
}

size_t FakeBus::callbackCount() const
{
    const std::lock_guard lock(mutex);
    return callbacks.size();
}

std::vector<FakeBus::Sent> FakeBus::sent() const
{
    const std::lock_guard lock(mutex);
    return messages;
}

void FakeBus::reset()
{
    const std::lock_guard lock(mutex);
    messages.clear();
    acceptsMessages = true;
    onCall = nullptr;
}

bool FakeBus::add(VQPBusProxyCallback& callback)
{
    if (onCall) {
        onCall("setCallBack");
    }
    const std::lock_guard lock(mutex);
    return callbacks.insert(&callback).second;
}

void FakeBus::remove(VQPBusProxyCallback& callback)
{
    if (onCall) {
        onCall("removeCallBack");
    }
    const std::lock_guard lock(mutex);
    callbacks.erase(&callback);
}

bool FakeBus::take(const std::string& destination, std::unique_ptr<MessageBase> message, bool keep)
{
    if (onCall) {
        onCall("sendTo");
    }
    const std::lock_guard lock(mutex);
    messages.push_back({destination, std::move(message), keep});
    return acceptsMessages;
}
