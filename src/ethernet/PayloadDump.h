#pragma once

#include <LogLine.h>

#include <vqutil/hexdump.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

namespace ethernet {

/// Writes a payload to standard output, 16 bytes a line, as one piece: lines of other threads stand before or
/// behind.
inline void dumpPayload(const std::string& prefix, const uint8_t* data, size_t size)
{
    constexpr unsigned long BYTES_PER_LINE = 16;
    std::ostringstream lines;
    hexdump(lines, data, data + size, prefix, BYTES_PER_LINE, HEXDUMP_PREFIX_TEXT, true);
    logline::writeLocked(lines.str());
}

} // namespace ethernet
