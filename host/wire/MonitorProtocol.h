#pragma once

#include <wire/TraceRecord.h>

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Watching and feeding the buses from outside.
///
/// MONITOR: the text names the channels, "0,3,14", or is empty for all of them. The reply carries a SOCK_STREAM
/// descriptor, as that of OPEN_READ does; its records begin like every record (TraceRecord.h):
///
/// | type | body |
/// |---|---|
/// | 0x8101 | a CAN frame that the channel received, laid out like type 11 |
/// | 0x8102 | a CAN frame that the channel sent, laid out like type 11 |
/// | 0x8103 | frames that were dropped here since the last record, because this monitor took nothing (8) |
///
/// A client that shuts down its sending side gets what waits for it, and then the end of the stream.
///
/// INJECT: after the reply the client sends one record of type 11 per packet: frames of a member of the bus of that
/// channel that is no channel itself. A FINISH packet ends it; its reply says that every frame has been delivered.
namespace wire {

constexpr uint16_t MONITOR_RECEIVED_TYPE = 0x8101;
constexpr uint16_t MONITOR_SENT_TYPE = 0x8102;
constexpr uint16_t MONITOR_DROPPED_TYPE = 0x8103;
constexpr size_t MONITOR_DROPPED_BYTES = RECORD_MIN_BYTES + 8;

/// Which channels a monitor watches.
using ChannelSet = std::bitset<256>;

/// The text of a MONITOR request; empty if every channel is in the set.
std::string textOfChannels(const ChannelSet& channels);
/// @return nothing if the text is no list of channels
std::optional<ChannelSet> channelsOfText(std::string_view text);

/// What one record of a monitor says.
struct MonitorEvent
{
    CanRecord frame;      ///< without meaning if `dropped` is set
    bool isSent = false;  ///< the channel sent the frame; otherwise it received it
    uint64_t dropped = 0; ///< frames that are missing here; 0: the event is a frame
};

/// @return length of the record in bytes
size_t encodeMonitorFrame(const CanRecord& frame, bool isSent, std::span<uint8_t, CAN_RECORD_MAX_BYTES> out);
std::array<uint8_t, MONITOR_DROPPED_BYTES> encodeMonitorDropped(uint64_t count);

/// Cuts what was read from a monitor's stream into events.
class MonitorDecoder
{
public:
    /// Appends bytes as they were read.
    void feed(std::span<const uint8_t> more);

    /// Takes the next whole event.
    /// @return false if more bytes are needed
    /// @throws std::runtime_error if the stream is none of a monitor
    bool next(MonitorEvent& event);

private:
    std::vector<uint8_t> bytes;
    size_t begin = 0;
};

} // namespace wire
