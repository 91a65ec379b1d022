#pragma once

#include <cstdint>
#include <string>

namespace capture {

/// A count within a sentence: "1 frame is", "2 frames are".
inline std::string counted(uint64_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

inline std::string countedFrames(uint64_t count)
{
    return counted(count, "frame", "frames");
}

} // namespace capture
