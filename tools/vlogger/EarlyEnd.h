#pragma once

#include <capture/Counted.h>

#include <cstdint>
#include <exception>
#include <string>

namespace tool {

/// What a command says whose capture cannot be written any further, for instance on a full disk.
/// @param what    what the command was doing: "recording"
/// @param frames  in the capture, which ends with the last whole one
inline std::string earlyEnd(const std::string& what, uint64_t frames, const std::exception& cause)
{
    return "vlogger: " + what + " ends after " + capture::countedFrames(frames) +
           ", which can be read: " + cause.what();
}

} // namespace tool
