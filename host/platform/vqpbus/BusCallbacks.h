#pragma once

#include <vqpbus/VQPBusProxyCallback.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace vqhost {

/// The callbacks of the process bus, and which of them is being called.
///
/// Threads: any; deliver() and report() are called by one thread, the bus thread.
class BusCallbacks
{
public:
    /// @return false if it was there already
    bool add(VQPBusProxyCallback& callback);

    /// Removes a callback, there or not. On return no call into it is running, unless this is such a call.
    void remove(VQPBusProxyCallback& callback);

    /// Calls each callback with a message, or with a report, in ascending pointer order and without a lock held.
    /// One that is removed meanwhile is not called any more. An exception out of a call is written to standard
    /// error, and the next callback has its turn.
    void deliver(const MessageBase& message, const std::string& source, const std::string& destination);
    void report(VQPBusProxyCallback::StatusCBType_t type, int code, const std::string& text);

private:
    template <typename Call>
    void callEach(const Call& call);

    std::mutex mutex; ///< guards everything below
    std::condition_variable callEnded;
    std::set<VQPBusProxyCallback*> callbacks;
    VQPBusProxyCallback* running = nullptr; ///< the one that is being called
    std::thread::id caller;                 ///< by whom
};

} // namespace vqhost
