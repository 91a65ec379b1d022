#include "vqpbus/BusCallbacks.h"

#include "vqutil/ErrorLine.h"

#include <cxxabi.h>

#include <exception>
#include <string>

namespace vqhost {

namespace {

/// The bus goes on whatever a callback does.
template <typename Call>
void callSafely(const Call& call, VQPBusProxyCallback& callback)
{
    constexpr char START[] = "[ERROR] process bus: exception out of a callback: ";
    try {
        call(callback);
    } catch (const std::exception& exception) {
        writeErrorLine(std::string(START) + exception.what());
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being ended; the C library insists on that
    } catch (...) {
        writeErrorLine(std::string(START) + "unknown");
    }
}

} // namespace

template <typename Call>
void BusCallbacks::callEach(const Call& call)
{
    std::unique_lock lock(mutex);
    caller = std::this_thread::get_id();
    for (auto next = callbacks.begin(); next != callbacks.end(); next = callbacks.upper_bound(running)) {
        running = *next;
        lock.unlock();
        callSafely(call, *running);
        lock.lock();
        callEnded.notify_all();
    }
    running = nullptr;
    caller = {};
    callEnded.notify_all();
}

bool BusCallbacks::add(VQPBusProxyCallback& callback)
{
    const std::lock_guard lock(mutex);
    return callbacks.insert(&callback).second;
}

void BusCallbacks::remove(VQPBusProxyCallback& callback)
{
    std::unique_lock lock(mutex);
    callbacks.erase(&callback);
    if (caller != std::this_thread::get_id()) {
        callEnded.wait(lock, [&] { return running != &callback; });
    }
}

void BusCallbacks::deliver(const MessageBase& message, const std::string& source, const std::string& destination)
{
    callEach([&](VQPBusProxyCallback& callback) { callback.vqpBusProxyCb(&message, source, destination); });
}

void BusCallbacks::report(VQPBusProxyCallback::StatusCBType_t type, int code, const std::string& text)
{
    callEach([&](VQPBusProxyCallback& callback) { callback.vqpBusProxyStatusCb(type, code, text); });
}

} // namespace vqhost
