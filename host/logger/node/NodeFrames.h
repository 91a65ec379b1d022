#pragma once

#include <logger/Clock.h>
#include <wire/TraceRecord.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

/// What the nodes have in common.
namespace vlogger {

/// Whether a frame is a classic data frame with this identifier.
inline bool isClassicFrame(const wire::CanRecord& frame, uint32_t id, bool extended)
{
    return frame.id == id && frame.type == (extended ? 1 : 0) && frame.frameKind == 0;
}

/// @param data  at most 8 bytes
inline wire::CanRecord classicFrame(uint32_t id, bool extended, std::span<const uint8_t> data)
{
    wire::CanRecord record{
        .type = static_cast<uint8_t>(extended ? 1 : 0), .id = id, .lengthBytes = static_cast<uint8_t>(data.size())};
    std::ranges::copy(data, record.payload.begin());
    return record;
}

inline std::optional<Clock::Instant> earlierOf(std::optional<Clock::Instant> one,
                                               std::optional<Clock::Instant> other)
{
    return one && other ? std::min(one, other) : (one ? one : other);
}

} // namespace vlogger
