#pragma once

namespace vlogger {

/// True if the process at the other end of the connection belongs to the user of this process.
bool isSameUser(int fd);

} // namespace vlogger
