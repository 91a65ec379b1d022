#pragma once

#include <capture/CandumpLog.h>

#include <string_view>

namespace capture {

/// Reads a frame as candump and `vlogger dump` show it on a terminal, from behind the interface to the end of the line:
/// direction with or without the two CAN FD flags, identifier, length in brackets, bytes or "remote request", and the
/// bytes as text or the mark of an error frame. Without the direction the CAN FD flags are not shown, and 0 here.
///
/// @param details  its direction is set if the line shows one
/// @throws CandumpError without a line number if it is malformed
void parseScreenFrame(std::string_view rest, CandumpFrame& frame, LineDetails& details);

} // namespace capture
