#include <config/ConfigurationTable.h>

#include <array>

namespace config {

namespace {

constexpr std::array<std::string_view, 2> PROTOCOLS{"iso_tp", "frame"};
constexpr std::array<std::string_view, 2> ADDRESSINGS{"normal", "extended"};
constexpr std::array<std::string_view, 6> NODE_FAULTS{
    "none", "drop_consecutive", "wrong_sequence", "no_flow_control", "overflow", "silent"};
constexpr std::array<std::string_view, 2> TRANSPORTS{"tcp", "udp"};
constexpr std::array<std::string_view, 3> BEHAVIOURS{"echo", "sink", "silent"};
constexpr std::array<std::string_view, 10> FAULT_KINDS{
    "device_missing",   "device_returns", "device_vanishes", "write_fails", "stream_cut",
    "record_malformed", "clock_lost",     "clock_found",     "peer_silent", "peer_talks"};

constexpr uint64_t EXTENDED_ID_MAX = 0x1FFFFFFF;
constexpr uint64_t SEPARATION_TIME_MAX_US = 127000;
/// An hour: what waits longer, nobody waits for.
constexpr uint64_t WAIT_MAX_MS = 3600000;
/// Consecutive frames of the longest message, with an address byte in each.
constexpr uint64_t CONSECUTIVE_MAX = 682;
constexpr uint64_t STREAM_MIN_BYTES = 4096;
constexpr uint64_t STREAM_MAX_BYTES = 1U << 30;

} // namespace

std::span<const Key<wire::Board>> boardKeys()
{
    static const Key<wire::Board> KEYS[] = {
        keyFor<&wire::Board::boardType>(
            {.name = "type", .meaning = "type of the board; 16 and 112 have all channels on one device"}),
        keyFor<&wire::Board::deviceCode>(
            {.name = "device_code",
             .meaning = "code of the extension board; 4: fitted, it serves the channels from 14 on"}),
        keyFor<&wire::Board::canFdDevice>(
            {.name = "can_fd_device", .meaning = "on board types 16 and 112: the one device is the CAN FD device"}),
    };
    return KEYS;
}

std::span<const Key<Wiring>> wiringKeys()
{
    static const Key<Wiring> KEYS[] = {
        keyFor<&Wiring::buses>({.name = "buses",
                                .meaning =
                                    "channels that share a bus, one list per bus; a channel in no list is alone; "
                                    "empty: pairs 0-1, 2-3, …, 254-255"}),
    };
    return KEYS;
}

std::span<const Key<Queues>> queueKeys()
{
    static const Key<Queues> KEYS[] = {
        keyFor<&Queues::streamBytes>(
            {.name = "stream_bytes",
             .meaning = "bytes that wait for one reader of a trace device before its senders are held back",
             .least = STREAM_MIN_BYTES,
             .most = STREAM_MAX_BYTES}),
        keyFor<&Queues::stallLimitMs>(
            {.name = "stall_limit_ms",
             .meaning = "how long a full queue whose reader takes nothing holds back its senders; then its newest "
                        "frames are dropped and counted",
             .most = WAIT_MAX_MS}),
    };
    return KEYS;
}

std::span<const Key<Addresses>> addressKeys()
{
    static const Key<Addresses> KEYS[] = {
        keyFor<&Addresses::taken>(
            {.name = "taken",
             .meaning = "IPv4 addresses that the address service refuses, as if another host had them"}),
    };
    return KEYS;
}

std::span<const Key<Node>> nodeKeys()
{
    static const Key<Node> KEYS[] = {
        keyFor<&Node::name>({.name = "name", .meaning = "names the node in messages", .isRequired = true}),
        keyFor<&Node::channel>({.name = "channel", .meaning = "the node sits on the bus of this channel"}),
        keyFor<&Node::protocol>(
            {.name = "protocol",
             .meaning = "iso_tp: requests and answers are messages by ISO 15765-2; frame: single classic frames",
             .words = PROTOCOLS}),
        keyFor<&Node::requestId>({.name = "request_id",
                                  .meaning = "identifier that the node listens to",
                                  .most = EXTENDED_ID_MAX,
                                  .isHex = true}),
        keyFor<&Node::responseId>({.name = "response_id",
                                   .meaning = "identifier that it sends with",
                                   .most = EXTENDED_ID_MAX,
                                   .isHex = true}),
        keyFor<&Node::extended>({.name = "extended", .meaning = "both identifiers have 29 bits"}),
        keyFor<&Node::addressing>(
            {.name = "addressing",
             .meaning = "iso_tp: extended: a byte in front of the control information names the receiver",
             .words = ADDRESSINGS}),
        keyFor<&Node::address>({.name = "address",
                                .meaning = "extended addressing: its own address; it takes no other frames",
                                .isHex = true}),
        keyFor<&Node::peerAddress>({.name = "peer_address",
                                    .meaning = "extended addressing: the address that it sends to",
                                    .isHex = true}),
        keyFor<&Node::minimalDlc>(
            {.name = "minimal_dlc",
             .meaning = "iso_tp: frames are as short as their content, not padded to 8 bytes"}),
        keyFor<&Node::blockSize>(
            {.name = "block_size",
             .meaning = "iso_tp: frames that a sender may send between two flow-control frames; 0: all"}),
        keyFor<&Node::separationTimeUs>(
            {.name = "separation_time_us",
             .meaning =
                 "iso_tp: least time between two frames of a sender; whole milliseconds, or 100 to 900 in steps "
                 "of 100",
             .most = SEPARATION_TIME_MAX_US}),
        keyFor<&Node::waitFrames>(
            {.name = "wait_frames",
             .meaning = "iso_tp: WAIT frames that it sends before each time that it lets a sender go on"}),
        keyFor<&Node::waitIntervalMs>({.name = "wait_interval_ms",
                                       .meaning = "time from one of them to the next flow-control frame",
                                       .most = WAIT_MAX_MS}),
        keyFor<&Node::delayMs>(
            {.name = "delay_ms", .meaning = "time between a request and its answer", .most = WAIT_MAX_MS}),
        keyFor<&Node::fault>(
            {.name = "fault",
             .meaning = "iso_tp: what it does wrong: leaves out a consecutive frame of every answer, gives one the "
                        "number of the next, does not answer first frames, answers them with an overflow, or sends "
                        "nothing at all",
             .words = NODE_FAULTS}),
        keyFor<&Node::faultFrame>(
            {.name = "fault_frame",
             .meaning = "the consecutive frame that is left out or wrong, counted from 1 in each answer",
             .least = 1,
             .most = CONSECUTIVE_MAX}),
    };
    return KEYS;
}

std::span<const Key<Answer>> answerKeys()
{
    static const Key<Answer> KEYS[] = {
        keyFor<&Answer::request>(
            {.name = "request",
             .meaning = "hex bytes; the answer is given to every message that begins with them",
             .isRequired = true}),
        keyFor<&Answer::mask>(
            {.name = "mask", .meaning = "hex bytes, as many as in `request`: the bits that count; empty: all"}),
        keyFor<&Answer::response>(
            {.name = "response", .meaning = "hex bytes of the answer: 1 to 4095, as a frame 1 to 8"}),
        keyFor<&Answer::echo>(
            {.name = "echo", .meaning = "the answer is the request itself; `response` is then empty"}),
    };
    return KEYS;
}

std::span<const Key<CyclicFrame>> cyclicKeys()
{
    static const Key<CyclicFrame> KEYS[] = {
        keyFor<&CyclicFrame::id>(
            {.name = "id", .meaning = "identifier", .most = EXTENDED_ID_MAX, .isHex = true, .isRequired = true}),
        keyFor<&CyclicFrame::extended>({.name = "extended", .meaning = "the identifier has 29 bits"}),
        keyFor<&CyclicFrame::fd>({.name = "fd", .meaning = "a CAN FD frame"}),
        keyFor<&CyclicFrame::payload>(
            {.name = "payload", .meaning = "hex bytes, at most 8; of a CAN FD frame at most 64"}),
        keyFor<&CyclicFrame::periodMs>(
            {.name = "period_ms", .meaning = "time from one frame to the next", .least = 1, .most = WAIT_MAX_MS}),
    };
    return KEYS;
}

std::span<const Key<Peer>> peerKeys()
{
    static const Key<Peer> KEYS[] = {
        keyFor<&Peer::name>(
            {.name = "name", .meaning = "names the peer in messages and faults", .isRequired = true}),
        keyFor<&Peer::transport>({.name = "transport", .meaning = "protocol that it serves", .words = TRANSPORTS}),
        keyFor<&Peer::address>({.name = "address", .meaning = "IPv4 address of this machine where it listens"}),
        keyFor<&Peer::port>({.name = "port", .meaning = "port where it listens", .least = 1, .isRequired = true}),
        keyFor<&Peer::behaviour>(
            {.name = "behaviour",
             .meaning =
                 "echo: sends back what it receives; sink: receives only; silent: takes connections, but neither "
                 "reads nor sends",
             .words = BEHAVIOURS}),
    };
    return KEYS;
}

std::span<const Key<Faults>> faultKeys()
{
    static const Key<Faults> KEYS[] = {
        keyFor<&Faults::seed>({.name = "seed", .meaning = "draws the times; the same seed gives the same times"}),
    };
    return KEYS;
}

std::span<const Key<FaultEvent>> faultEventKeys()
{
    static const Key<FaultEvent> KEYS[] = {
        keyFor<&FaultEvent::kind>(
            {.name = "kind", .meaning = "what happens", .words = FAULT_KINDS, .isRequired = true}),
        keyFor<&FaultEvent::target>(
            {.name = "target",
             .meaning = "to what: the path of a device, for a clock fpgab or fpgac, or the name of a peer",
             .isRequired = true}),
        keyFor<&FaultEvent::atMs>({.name = "at_ms", .meaning = "when, after the start"}),
        keyFor<&FaultEvent::spreadMs>({.name = "spread_ms", .meaning = "up to so much later, drawn by the seed"}),
        keyFor<&FaultEvent::everyMs>({.name = "every_ms", .meaning = "again after so long; 0: once"}),
        keyFor<&FaultEvent::count>({.name = "count", .meaning = "write_fails: so many writes", .least = 1}),
        keyFor<&FaultEvent::error>({.name = "error", .meaning = "write_fails: with this error, by its name"}),
    };
    return KEYS;
}

} // namespace config
