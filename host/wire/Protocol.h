#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What the host platform and the virtual logger say to each other: packets on a SOCK_SEQPACKET connection, one
/// packet per message, all numbers big-endian. docs/wire.md has the tables.
///
/// A connection begins with one request of the client and one reply of the virtual logger:
///
/// | request | text | reply body, after the error number |
/// |---|---|---|
/// | OPEN_WRITE | device path | |
/// | OPEN_READ | device path | none; the packet carries a SOCK_STREAM descriptor (SCM_RIGHTS) |
/// | BOARD | | board type (4), device code (4), CAN FD device (1) |
/// | OFFSET | device name, "fpgab" or "fpgac" | offset in microseconds (8) |
/// | BUS | bus name of the client | |
/// | MONITOR | channels | none; the packet carries a SOCK_STREAM descriptor, see MonitorProtocol.h |
/// | INJECT | | |
/// | STATISTICS | | none; one packet follows, see StageStatistics.h |
/// | ADDRESS | IPv4 address | |
///
/// ADDRESS asks if another host has the address: EADDRINUSE if so.
///
/// After OPEN_WRITE the client sends one record per packet, and the virtual logger FAULT packets. After INJECT the
/// client sends one record per packet, at the end FINISH, which the virtual logger answers by a reply. After BUS
/// both send the packets of BusProtocol.h. After every other reply, and after one with an error, the virtual logger
/// closes the connection; the stream of OPEN_READ lives on its own.
///
/// Error numbers: EPROTO no packet of this protocol and version; EINVAL a packet that is no request; EACCES another
/// user's process; ENOENT no such device; ENODATA the clock of the device is not synchronised; EMFILE and the like
/// when the virtual logger has run out of descriptors.
namespace wire {

constexpr uint8_t PROTOCOL_VERSION = 1;
constexpr size_t PACKET_HEADER_BYTES = 4;
/// No request or reply is longer; records and process-bus packets have limits of their own.
constexpr size_t REQUEST_MAX_BYTES = 512;

enum class Kind : uint8_t
{
    OPEN_WRITE = 1,
    OPEN_READ = 2,
    BOARD = 3,
    OFFSET = 4,
    BUS = 5,
    MONITOR = 6,
    INJECT = 7,
    STATISTICS = 8,
    ADDRESS = 9,
    FINISH = 0x3F, ///< the client has sent everything
    FAULT = 0x40,  ///< the next write on this device fails with the error number in the body
    REPLY = 0x80,
};

struct Request
{
    Kind kind;
    std::string text; ///< device path, device name or bus name
};

struct Reply
{
    int errorNumber = 0; ///< 0: granted
    std::vector<uint8_t> body;
};

struct Board
{
    uint32_t boardType = 1;
    uint32_t deviceCode = 0;
    bool canFdDevice = false;

    bool operator==(const Board&) const = default;
};

std::vector<uint8_t> encodeRequest(const Request& request);
std::vector<uint8_t> encodeReply(const Reply& reply);
std::vector<uint8_t> encodeFault(int errorNumber);
std::vector<uint8_t> encodeFinish();
std::vector<uint8_t> encodeBoard(const Board& board);
std::vector<uint8_t> encodeOffset(uint64_t offsetUs);

/// Decodes a packet; nothing if it is not of that kind, of another version, too short or too long. A version other
/// than ours can be told apart with versionOf().
std::optional<Request> decodeRequest(std::span<const uint8_t> packet);
std::optional<Reply> decodeReply(std::span<const uint8_t> packet);
std::optional<int> decodeFault(std::span<const uint8_t> packet);
bool isFinish(std::span<const uint8_t> packet);
std::optional<Board> decodeBoard(std::span<const uint8_t> body);
std::optional<uint64_t> decodeOffset(std::span<const uint8_t> body);

/// Version that a packet names; nothing if it is no packet of this protocol at all.
std::optional<uint8_t> versionOf(std::span<const uint8_t> packet);

} // namespace wire
