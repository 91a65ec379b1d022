#pragma once

#include <logger/Connection.h>
#include <logger/ConnectionList.h>
#include <logger/StallGuard.h>
#include <logger/VirtualLogger.h>
#include <logger/Watch.h>
#include <wire/BusProtocol.h>
#include <wire/FileDescriptor.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace vlogger {

class ProcessBus;

/// A process's connection to the process bus: sends messages, and has a queue for those that are sent to it.
///
/// While a message of this process has to wait for another one's queue, nothing more is read from it.
class BusMember : public Connection, private StallGuard::Queue
{
public:
    BusMember(EpollLoop& eventLoop, ConnectionList& owner, wire::FileDescriptor connection, std::string busName,
              ProcessBus& processBus, const Options& options, Statistics& counters);
    ~BusMember() override;

    const std::string& name() const { return ownName; }

    /// Whether a message may be appended now. On HOLD the sender calls wait().
    Admission admit() { return guard.admit(); }
    void wait(Sender& sender) { guard.wait(sender); }

    /// Appends a message. If this process has stalled it does not get it; that is counted, and the process is told.
    void append(const wire::BusMessage& message);

    void close() override;
    void onReady(uint32_t events) override;
    void resume() override;

private:
    bool isFull() const override;
    void flush() override;
    void onStalled() override;
    void flushSoon();
    void drop();
    void enqueue(std::vector<uint8_t> packet);
    void tellDropped();
    bool sendFront();
    void stopSending();
    void receive();
    bool receiveOne();
    void watchAgain();

    EpollLoop& loop;
    ConnectionList& list;
    wire::FileDescriptor fd;
    std::optional<Watch> watch;
    const std::string ownName;
    ProcessBus& bus;
    const Options& settings;
    Statistics& statistics;
    StallGuard guard;
    std::deque<std::vector<uint8_t>> queue; ///< packets as they are sent
    size_t queuedBytes = 0;
    uint64_t droppedUntold = 0;
    std::vector<uint8_t> held; ///< a packet of this process that waits for somebody's queue; empty: none
    bool flushing = false;     ///< a flush is due at the end of the round
    bool isBlocked = false;    ///< the system has no room; it reports when it has
    bool hungUp = false;       ///< the process has gone; what it sent before is still to be read
};

} // namespace vlogger
