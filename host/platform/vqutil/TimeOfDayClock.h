#pragma once

#include <cstdint>

namespace vqhost {

/// Microseconds since the epoch (UTC).
using EpochClock = uint64_t (*)() noexcept;

/// Replaces the clock behind getMicroSecondsOfDay(); a null pointer brings the system's back.
/// Threads: any.
void setEpochClock(EpochClock clock) noexcept;

} // namespace vqhost
