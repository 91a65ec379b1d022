#pragma once

#include <capture/CandumpLog.h>
#include <wire/TraceRecord.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Frames, channels and records as texts, in the syntax of the usual CAN tools.
namespace tool {

/// A frame as one writes it: 123#DEADBEEF, 1F334455#11.22, 123##1AABB, 123#R.
/// @throws WrongUsage with the text and the reason; also for a CAN FD frame of a length that no bus can carry: filling
///         it up, as other tools do, would send bytes that nobody has asked for
capture::CandumpFrame parseFrame(const std::string& text);

/// A channel as one writes it: 3 or can3.
std::optional<uint8_t> parseChannel(std::string_view text);

/// can3.
std::string nameOfChannel(uint8_t channel);

/// A frame for a bus. The bit-rate switch and the sender's error state have no place in a record, nor has the
/// length that a remote frame asks for.
/// @return nothing for an error frame, which nobody can send
std::optional<wire::CanRecord> recordOf(const capture::CandumpFrame& frame, uint8_t channel);

/// A frame of a bus, with the name of its channel and the time of the record.
capture::CandumpFrame frameOf(const wire::CanRecord& record);

/// A line as it is shown on a terminal: channel, identifier, length in brackets, bytes.
std::string formatShown(const capture::CandumpFrame& frame);

} // namespace tool
