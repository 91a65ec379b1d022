#pragma once

#include <cstdint>
#include <string>

/// Clock offsets without a logger: link the source, and TimeTickOffsetReader answers as told, at first 0. Notes the
/// effect "offset NAME".
namespace fakeoffsets {

void set(const std::string& deviceName, uint64_t offset);

/// The reader throws VQException for this device.
void loseSynchronisation(const std::string& deviceName);

/// The reader throws std::runtime_error for this device.
void fail(const std::string& deviceName, const std::string& text);

} // namespace fakeoffsets
