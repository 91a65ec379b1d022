#pragma once

#include <vqpbus/VQPBusProxy.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

/// Stands in for the process bus: a test that lists FakeBus.cpp among its sources gets this VQPBusProxy. Keeps what
/// is sent, and delivers on the thread that asks for it.
class FakeBus
{
public:
    struct Sent
    {
        std::string destination;
        std::shared_ptr<MessageBase> message;
        bool keep;
    };

    static FakeBus& instance();

    /// Calls every callback, as the bus thread would.
    void deliver(const MessageBase* message, const std::string& source = "TraceLogger",
                 const std::string& destination = "Diagnostic");
    void reportStatus(VQPBusProxyCallback::StatusCBType_t type, int code, const std::string& text);

    bool has(const VQPBusProxyCallback& callback) const;
    size_t callbackCount() const;
    std::vector<Sent> sent() const;
    /// Forgets what the test before left, except callbacks.
    void reset();

    bool acceptsMessages = true;
    std::function<void(const std::string& operation)> onCall; ///< may throw; called first in every operation

    // What the proxy does.
    bool add(VQPBusProxyCallback& callback);
    void remove(VQPBusProxyCallback& callback);
    bool take(const std::string& destination, std::unique_ptr<MessageBase> message, bool keep);

private:
    void forEach(const std::function<void(VQPBusProxyCallback&)>& call);

    /// Held while callbacks run: on return from remove() no other thread is in the callback.
    mutable std::recursive_mutex mutex;
    std::set<VQPBusProxyCallback*> callbacks;
    std::vector<Sent> messages;
};
