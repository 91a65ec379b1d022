#pragma once

#include <string>

namespace wire {

/// Where a virtual logger listens if nobody says otherwise, and where programs look for one:
/// $XDG_RUNTIME_DIR/vlogger/socket, or /tmp/vlogger-<user number>/socket if that variable is not set to an absolute
/// path.
std::string defaultSocketPath();

} // namespace wire
