#pragma once

#include <capture/CandumpLog.h>

#include <string>

namespace tool {

/// A frame as one JSON object: time_us, channel, direction, id, extended, fd, remote, data.
std::string jsonOf(const capture::CandumpFrame& frame, bool isSent);

} // namespace tool
