#include "vqpbus/BusClient.h"

#include "endpoint/ProcessEnd.h"
#include "vqtrace/MessageDecoder.h"
#include "vqutil/ErrorLine.h"

#include <logger/SignalsBlocked.h>
#include <wire/BusProtocol.h>
#include <wire/TraceRecord.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace vqhost {

namespace {

constexpr std::chrono::milliseconds FIRST_PAUSE{20};
constexpr std::chrono::milliseconds LONGEST_PAUSE{1000};

std::string nameOnTheBus()
{
    const char* const name = std::getenv("VQPBUS_NAME");
    return name != nullptr && name[0] != '\0' ? name : "Diagnostic";
}

} // namespace

BusClient& BusClient::instance()
{
    static auto* const client = new BusClient;
    return *client;
}

BusClient::BusClient() : ownName(nameOnTheBus()), process(getpid()) {}

bool BusClient::isForeign() const
{
    return getpid() != process;
}

bool BusClient::addCallback(VQPBusProxyCallback& callback)
{
    if (isForeign()) {
        return false;
    }
    const bool added = callbacks.add(callback);
    start();
    return added;
}

void BusClient::removeCallback(VQPBusProxyCallback& callback)
{
    // A call that was running at the fork would seem to run for ever.
    if (!isForeign()) {
        callbacks.remove(callback);
    }
}

bool BusClient::sendTo(const std::string& destination, const MessageBase* message, bool keep)
{
    Packet record;
    Packet packet;
    if (message == nullptr || isForeign()) {
        return false;
    }
    message->createByteArray(record, true, false);
    if (record.size() > wire::RECORD_MAX_BYTES ||
        !wire::appendBusMessage(packet, {.source = ownName, .destination = destination, .record = record})) {
        return false;
    }
    if (keep) {
        keepPacket(packet);
    }
    start();
    // A second time if the connection turns out to be lost before the bus thread has noticed.
    for (int i = 0; i < 2; ++i) {
        const Attempt attempt = connect();
        if (attempt.connection == nullptr) {
            return false;
        }
        // A connection that was made just now has got it with the other kept ones.
        const int errorNumber = attempt.isNew && keep ? 0 : attempt.connection->send(packet);
        if (errorNumber == 0) {
            return true;
        }
        const bool isLost = errorNumber == EPIPE || errorNumber == ECONNRESET;
        if (!isLost && !keep) {
            return false;
        }
        forget(attempt.connection);
        if (!isLost) {
            // Whoever registered would stay deaf without knowing: the bus thread takes what has arrived, says that
            // the connection is gone, and makes the next one with every registration.
            attempt.connection->end();
            return false;
        }
    }
    return false;
}

/// Registrations are never taken back; one that is sent again is kept once.
void BusClient::keepPacket(const Packet& packet)
{
    const std::lock_guard lock(state);
    if (std::find(kept.begin(), kept.end(), packet) == kept.end()) {
        kept.push_back(packet);
    }
}

/// Makes sure that there is a bus thread. A process that is ending starts none; one that has no room for a thread
/// tries again with the next call.
void BusClient::start()
{
    std::unique_lock lock(state);
    if (thread.joinable() || processIsEnding()) {
        return;
    }
    try {
        const vlogger::SignalsBlocked blocked;
        thread = std::thread(&BusClient::run, this);
        saidThatThereIsNoThread = false;
    } catch (const std::system_error& error) {
        if (!std::exchange(saidThatThereIsNoThread, true)) {
            lock.unlock();
            writeErrorLine("[ERROR] process bus: cannot start its thread: " + error.code().message() +
                           "; nothing is received until a later call succeeds");
        }
    }
}

BusClient::Connection BusClient::currentConnection()
{
    const std::lock_guard lock(state);
    return connection;
}

/// The connection, made if there is none.
BusClient::Attempt BusClient::connect()
{
    const std::lock_guard attempt(connecting);
    if (Connection existing = currentConnection()) {
        return {.connection = std::move(existing)};
    }
    try {
        const auto made = std::make_shared<BusConnection>(ownName);
        repeatKept(*made);
        const std::lock_guard lock(state);
        connection = made;
        connected.notify_all();
        return {.connection = made, .isNew = true};
    } catch (const std::system_error& error) {
        return {.connection = nullptr, .errorNumber = error.code().value()};
    }
}

void BusClient::repeatKept(const BusConnection& to)
{
    std::vector<Packet> packets;
    {
        const std::lock_guard lock(state);
        packets = kept;
    }
    for (const Packet& packet : packets) {
        if (const int errorNumber = to.send(packet); errorNumber != 0) {
            throw std::system_error(errorNumber, std::generic_category());
        }
    }
}

void BusClient::forget(const Connection& lost)
{
    const std::lock_guard lock(state);
    if (connection == lost) {
        connection.reset();
    }
}

/// The bus thread.
void BusClient::run()
{
    bool saidThatThereIsNone = false;
    bool hadOne = false;
    std::chrono::milliseconds pause = FIRST_PAUSE;
    while (true) {
        const Attempt attempt = connect();
        if (attempt.connection == nullptr) {
            if (!std::exchange(saidThatThereIsNone, true)) {
                callbacks.report(VQPBusProxyCallback::STATUS_ERROR, attempt.errorNumber,
                                 "no process bus: " + std::generic_category().message(attempt.errorNumber));
            }
            waitForConnection(pause);
            pause = std::min(2 * pause, LONGEST_PAUSE);
            continue;
        }
        pause = FIRST_PAUSE;
        callbacks.report(VQPBusProxyCallback::STATUS_INFO, 0,
                         std::exchange(hadOne, true) ? "connected to the process bus again"
                                                     : "connected to the process bus");
        serve(*attempt.connection);
        forget(attempt.connection);
        saidThatThereIsNone = true;
        callbacks.report(VQPBusProxyCallback::STATUS_ERROR, ECONNRESET, "the process bus is gone");
    }
}

/// Until somebody else has made a connection, or the limit has passed.
void BusClient::waitForConnection(std::chrono::milliseconds limit)
{
    std::unique_lock lock(state);
    connected.wait_for(lock, limit, [this] { return connection != nullptr; });
}

void BusClient::serve(BusConnection& from)
{
    for (auto packet = from.receive(); !packet.empty(); packet = from.receive()) {
        if (const auto dropped = wire::decodeBusDropped(packet)) {
            const auto count = static_cast<int>(std::min<uint64_t>(*dropped, INT_MAX));
            callbacks.report(VQPBusProxyCallback::STATUS_WARNING, count,
                             "the process bus has dropped " + std::to_string(*dropped) +
                                 " messages for this process");
            continue;
        }
        const auto received = wire::decodeBusMessage(packet);
        const auto message = received ? decodeMessage(received->record) : nullptr;
        if (message == nullptr) {
            continue; // of a later version
        }
        const std::string source(received->source);
        const std::string destination(received->destination);
        callbacks.deliver(*message, source, destination);
    }
}

} // namespace vqhost
