#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vqhost {

/// Where the next record stands behind bytes that are none.
struct ScanResult
{
    size_t offset = 0;  ///< of the record, or of the first byte that may still become one
    bool found = false; ///< a record stands there

    bool operator==(const ScanResult&) const = default;
};

/// Looks for a record in `bytes`, which need not begin with one.
///
/// A header alone is not believed: zeros where it has its zero stand in many payloads. What counts is a CAN frame,
/// whose fields confirm each other, and in front of it (or of the end of `bytes`) whole records that lead exactly
/// there. So a chance hit cannot swallow a good frame, not even one that has only begun to arrive.
///
/// @param limitBytes  no record is longer than this
ScanResult findRecord(std::span<const uint8_t> bytes, size_t limitBytes);

} // namespace vqhost
