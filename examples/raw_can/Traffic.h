#pragma once

#include <capture/CandumpLog.h>

#include <vqtrace/cantype.h>

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

/// What the sender of a frame is configured with.
struct SenderKey
{
    uint8_t channel;
    uint32_t id;
    cantype_t type;

    // NOLINTNEXTLINE(modernize-use-nullptr): the check stumbles over the defaulted operator.
    auto operator<=>(const SenderKey&) const = default;
};

/// A row of the result: what was sent on one channel with one identifier, whatever the kind of frame.
struct RowKey
{
    uint8_t channel; ///< on which it is sent
    uint32_t idWord; ///< identifier, bit 31 set for a 29-bit one, as in a received record

    // NOLINTNEXTLINE(modernize-use-nullptr): the check stumbles over the defaulted operator.
    auto operator<=>(const RowKey&) const = default;
};

constexpr uint32_t EXTENDED_ID_BIT = 0x80000000;

/// The channel on which the traffic of a sending channel arrives: channels are wired in pairs 0-1, 2-3, …
constexpr uint8_t receivingChannel(uint8_t sendingChannel)
{
    return static_cast<uint8_t>(sendingChannel + 1);
}

cantype_t typeOf(const capture::CandumpFrame& frame);
RowKey rowOf(const SenderKey& sender);

/// What a log holds, found in a first pass over it: the interfaces have to be known before the first frame is sent.
struct Traffic
{
    std::map<std::string, uint8_t> channels; ///< interface name to sending channel
    std::set<SenderKey> senders;
    uint64_t frames = 0; ///< data frames
    uint64_t remoteFrames = 0;
    uint64_t errorFrames = 0;
};

/// Reads the whole log.
///
/// @param channelCount  CAN channels that the board has
/// @throws std::runtime_error with reason and remedy if it cannot be read, is malformed, has more interfaces than
///         there are channel pairs, or holds nothing to send
Traffic surveyLog(const std::string& file, unsigned channelCount);

/// Number of CAN channels of this board.
unsigned boardChannelCount();
