#pragma once

#include <logger/BoardKind.h>
#include <wire/StageStatistics.h>
#include <wire/TraceRecord.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vlogger {

class Clock;
class Node;

/// Everything that a virtual logger is built from. The defaults are a plain board with its channels wired in pairs.
struct Options
{
    wire::Board board = board::PLAIN;
    /// Channels that share a bus, one list per bus. A channel in no list is alone on its bus. Empty: the channels
    /// are wired in pairs 0-1, 2-3, … 254-255.
    std::vector<std::vector<uint8_t>> buses = {};
    /// Where to listen; empty: nowhere, only connect() leads to this logger. The directory is made with mode 0700
    /// if it is missing and refused if others may write to it or it belongs to somebody else.
    std::string socketPath = {};
    /// Bytes that wait for one reader of a trace device before its senders are held back.
    size_t streamQueueBytes = 1U << 20;
    /// Messages that wait for one client of the process bus before those who send to it are held back, and the
    /// bytes in them that have the same effect.
    size_t busQueueMessages = 65536;
    size_t busQueueBytes = 256U << 20;
    /// How long a full queue whose reader takes nothing holds back its senders; then its newest frames are dropped.
    std::chrono::milliseconds stallLimit{1000};
    /// IPv4 addresses that the address service is told another host has.
    std::vector<std::string> takenAddresses = {};
    /// Simulated control units, each on the bus of its channel. They belong to this logger while it lives.
    std::vector<std::shared_ptr<Node>> nodes = {};
    /// The time that the logger lives in; null: the machine's own.
    std::shared_ptr<Clock> clock = {};
};

/// Counts since the start.
struct Statistics
{
    uint64_t framesIn = 0;        ///< frames taken from writers and nodes
    uint64_t framesMalformed = 0; ///< packets of writers that were no frame; ignored
    uint64_t framesQueued = 0;    ///< frames handed to the queue of a reader; one frame counts once per reader
    uint64_t framesDropped = 0;   ///< frames that a stalled reader lost
    /// Clients turned away: of another user, with garbage, of another protocol version, or for want of a
    /// descriptor.
    uint64_t connectionsRefused = 0;
    uint64_t busMessagesIn = 0;        ///< messages taken from clients of the process bus
    uint64_t busMessagesMalformed = 0; ///< packets of these clients that were no message; ignored
    uint64_t busMessagesQueued = 0;    ///< messages handed to the queue of a client; one counts once per client
    uint64_t busMessagesDropped = 0;   ///< messages that a stalled client lost
    size_t busClients = 0;             ///< connections to the process bus now
    size_t readers = 0;                ///< open trace streams now
    size_t writers = 0;                ///< open transmit devices now
};

/// How one open trace stream is doing.
struct ReaderStatistics
{
    std::string device;
    uint64_t framesQueued = 0;
    uint64_t framesDropped = 0;
    size_t sendersWaiting = 0; ///< writers and nodes that this reader holds back now
    size_t bytesWaiting = 0;   ///< in the virtual logger; the system holds some more
    bool hasStalled = false;   ///< the reader has taken nothing for the stall limit; new frames are dropped
};

/// What has crossed a channel.
struct ChannelStatistics
{
    uint8_t channel = 0;
    uint64_t sent = 0;     ///< by applications
    uint64_t received = 0; ///< from other members of its bus
};

/// A logger in software: board, buses, trace devices, transmit devices and process bus behind one socket.
///
/// Built running: a thread of its own serves every client from one epoll loop. Clients are connections from the
/// host platform, of this process or of others of the same user. Only processes of the same user are served.
///
/// Threads: every operation may be called from any thread except the logger's own; each returns once the loop has
/// done it. The destructor closes every connection: readers see the end of their streams, writers fail.
class VirtualLogger
{
public:
    /// @throws std::system_error if the socket cannot be set up; EADDRINUSE if a living virtual logger listens
    ///         there (the socket of a dead one is taken over)
    /// @throws std::invalid_argument if a channel is on two buses, or a node is a null pointer
    explicit VirtualLogger(Options options);
    ~VirtualLogger();
    VirtualLogger(const VirtualLogger&) = delete;
    VirtualLogger& operator=(const VirtualLogger&) = delete;

    /// A connection from inside the process.
    /// @return descriptor of the client's end, close-on-exec, to be closed by the caller
    /// @throws std::system_error if there is no descriptor left
    int connect();

    // The operations with a device throw std::invalid_argument for a name that no board knows.

    /// Lets a node that is no channel of the logger send a frame on the bus of `record.channel`: it reaches every
    /// channel of that bus. Time stamp and channel are replaced on the way. Waits while a full queue of a reader
    /// that makes progress holds senders back; the end of the logger ends the wait.
    /// @throws std::invalid_argument for more than 64 bytes of payload
    void sendFromNode(const wire::CanRecord& record);

    /// The device cannot be opened any more (ENOENT), or can again. Open ones stay open.
    void setDeviceMissing(std::string_view path, bool missing);

    /// The next `count` writes of every client that has the device open for writing fail with `errorNumber`, which
    /// is above 0. If nobody has it open, this waits for the client that opens it next.
    void failWrites(std::string_view path, int errorNumber, unsigned count = 1);

    /// The device goes away: all its connections end, and it is missing from now on.
    void vanish(std::string_view path);

    /// The next record of every stream of this device is cut in the middle, and the stream ends there.
    void cutNextRecord(std::string_view path);

    /// The next record of every stream of this device carries a length that cannot be.
    void malformNextRecord(std::string_view path);

    /// The clock of "fpgab" or "fpgac" has lost, or found again, the system time. Synchronised at the start.
    void setSynchronised(std::string_view deviceName, bool synchronised);

    /// System time minus device time, in microseconds since the epoch: what the time-offset reader reports.
    uint64_t deviceOffsetUs() const;

    /// Waits until what clients wrote before the call has been taken, a client that is gone by now included. Frames
    /// that a full queue holds back are not waited for.
    /// @return false if clients kept writing until the limit had passed
    bool settle(std::chrono::milliseconds limit);

    Statistics statistics() const;
    /// One entry per open trace stream, in the order of opening per device.
    std::vector<ReaderStatistics> readerStatistics() const;
    /// One entry per channel that has sent or received anything.
    std::vector<ChannelStatistics> channelStatistics() const;
    /// What has passed each stage on the way of a frame, in the order of the path.
    wire::StageReport stageReport() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

} // namespace vlogger
