#pragma once

#include <logger/node/IsoTpNodeOptions.h>
#include <wire/Protocol.h>

#include <cstdint>
#include <string>
#include <vector>

/// The record that a virtual logger with everything around it is built from. A TOML file sets it
/// (readConfiguration), and so does a program that runs a virtual logger of its own. docs/configuration.md explains
/// every field; the table that file and record share is in ConfigurationTable.h.
namespace config {

using vlogger::Answer;
using vlogger::Bytes;
using NodeFault = vlogger::IsoTpFault;

struct Wiring
{
    /// Channels that share a bus, one list per bus. A channel in no list is alone. Empty: pairs 0-1, 2-3, ….
    std::vector<std::vector<uint8_t>> buses;
};

struct Queues
{
    uint32_t streamBytes = 1U << 20; ///< that wait for one reader of a trace device before senders are held back
    uint32_t stallLimitMs = 1000;    ///< for which a reader that takes nothing may hold senders back
};

struct Addresses
{
    std::vector<std::string> taken; ///< IPv4 addresses that the address service refuses: another host has them
};

/// A frame that a node sends again and again.
struct CyclicFrame
{
    uint32_t id = 0;
    bool extended = false;
    bool fd = false;
    Bytes payload;
    uint32_t periodMs = 100;
};

/// What requests and answers are made of.
enum class Protocol : uint8_t
{
    ISO_TP, ///< messages by ISO 15765-2
    FRAME,  ///< single classic frames
};

/// How an ISO-TP frame names its receiver.
enum class Addressing : uint8_t
{
    NORMAL,   ///< by its identifier alone
    EXTENDED, ///< by a byte in front of the control information
};

/// A simulated control unit on a bus.
struct Node
{
    std::string name;
    uint8_t channel = 1; ///< it sits on the bus of this channel
    Protocol protocol = Protocol::ISO_TP;
    uint32_t requestId = 0x7E0;
    uint32_t responseId = 0x7E8;
    bool extended = false;
    Addressing addressing = Addressing::NORMAL;
    uint8_t address = 0;     ///< its own, with extended addressing
    uint8_t peerAddress = 0; ///< of whom it answers, with extended addressing
    bool minimalDlc = false;
    uint8_t blockSize = 0;
    uint32_t separationTimeUs = 0; ///< 0 to 127000 in whole milliseconds, or 100 to 900 in steps of 100
    uint8_t waitFrames = 0;        ///< WAIT frames before each time that it lets a sender go on
    uint32_t waitIntervalMs = 100; ///< between them
    uint32_t delayMs = 0;          ///< before it answers
    NodeFault fault = NodeFault::NONE;
    uint32_t faultFrame = 1; ///< the consecutive frame that the fault is about, from 1
    std::vector<Answer> answers;
    std::vector<CyclicFrame> cyclic;
};

enum class Transport : uint8_t
{
    TCP,
    UDP,
};

enum class Behaviour : uint8_t
{
    ECHO,   ///< sends back what it receives
    SINK,   ///< receives and sends nothing
    SILENT, ///< takes connections, but neither reads nor sends
};

/// A server on the Ethernet side.
struct Peer
{
    std::string name;
    Transport transport = Transport::TCP;
    std::string address = "127.0.0.1";
    uint16_t port = 0;
    Behaviour behaviour = Behaviour::ECHO;
};

enum class FaultKind : uint8_t
{
    DEVICE_MISSING,   ///< the device cannot be opened any more
    DEVICE_RETURNS,   ///< it can again
    DEVICE_VANISHES,  ///< its connections end, and it is missing from then on
    WRITE_FAILS,      ///< the next writes on the device fail
    STREAM_CUT,       ///< the trace stream ends in the middle of the next record
    RECORD_MALFORMED, ///< the next record of the trace stream carries a length that cannot be
    CLOCK_LOST,       ///< the device clock loses the system time
    CLOCK_FOUND,      ///< it finds it again
    PEER_SILENT,      ///< an Ethernet peer neither reads nor sends any more
    PEER_TALKS,       ///< it behaves as configured again
};

struct FaultEvent
{
    FaultKind kind = FaultKind::WRITE_FAILS;
    std::string target = {};   ///< device path, clock ("fpgab", "fpgac") or name of a peer
    uint32_t atMs = 0;         ///< after the start
    uint32_t spreadMs = 0;     ///< up to so much later, drawn by the seed
    uint32_t everyMs = 0;      ///< again after so long; 0: once
    uint32_t count = 1;        ///< writes that fail
    std::string error = "EIO"; ///< with which they fail
};

struct Faults
{
    uint32_t seed = 1; ///< the same seed gives the same times
    std::vector<FaultEvent> events;
};

struct Configuration
{
    wire::Board board;
    Wiring wiring;
    Queues queues;
    Addresses addresses;
    std::vector<Node> nodes;
    std::vector<Peer> peers;
    Faults faults;
};

} // namespace config
