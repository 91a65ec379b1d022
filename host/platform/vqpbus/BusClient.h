#pragma once

#include "vqpbus/BusCallbacks.h"
#include "vqpbus/BusConnection.h"

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vqhost {

/// The process's place on the process bus: connection, bus thread, kept registrations. See VQPBusProxy.
///
/// A forked child has the object without its thread, and its locks and calls as they were at the fork. Nothing is
/// done there.
///
/// Lock order: connecting, then state. Neither is held while callbacks run or a message is sent, except that the
/// kept registrations are repeated under `connecting`, before anybody else can use the new connection.
class BusClient
{
public:
    /// The one object of the process, never destroyed, nor is its thread ended.
    static BusClient& instance();

    bool addCallback(VQPBusProxyCallback& callback);
    void removeCallback(VQPBusProxyCallback& callback);
    bool sendTo(const std::string& destination, const MessageBase* message, bool keep);

private:
    using Packet = std::vector<uint8_t>;
    using Connection = std::shared_ptr<BusConnection>;

    /// What came of looking for a connection.
    struct Attempt
    {
        Connection connection; ///< null: there is no bus
        bool isNew = false;    ///< made by this attempt, which has sent the kept registrations on it
        int errorNumber = 0;   ///< why there is none
    };

    BusClient();

    bool isForeign() const;
    void start();
    Connection currentConnection();
    Attempt connect();
    void repeatKept(const BusConnection& connection);
    void keepPacket(const Packet& packet);
    void forget(const Connection& connection);

    void run();
    void serve(BusConnection& connection);
    void waitForConnection(std::chrono::milliseconds limit);

    const std::string ownName;
    const pid_t process;
    BusCallbacks callbacks;

    std::mutex connecting; ///< held during the one attempt to connect that is made at a time

    std::mutex state; ///< guards everything below
    std::condition_variable connected;
    Connection connection;    ///< null while there is none
    std::vector<Packet> kept; ///< in the order in which they were first sent
    std::thread thread;       ///< joined by nobody: it lives as long as the process
    bool saidThatThereIsNoThread = false;
};

} // namespace vqhost
