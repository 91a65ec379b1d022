#pragma once

#include <vqutil/Export.h>

#include <cstdint>

/// The time of day (UTC) in microseconds, 0 to 86 399 999 999; starts again at midnight.
/// Threads: any. Never fails.
VQ_API uint64_t getMicroSecondsOfDay();
