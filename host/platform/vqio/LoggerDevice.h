#pragma once

namespace vqhost {

/// Opens a device of the logger: a connection to the virtual logger.
///
/// @param path   one of the four device names
/// @param flags  as of open(2). O_WRONLY: a transmit device, one frame per write. O_RDONLY: a trace device, a
///               stream of records. O_CLOEXEC and O_NONBLOCK have their usual meaning, all others none.
/// @return descriptor, or -1 with errno: EACCES for any other access mode, ENOENT if the board does not have the
///         device, ENXIO or ECONNREFUSED if no virtual logger is there, ETIMEDOUT if it does not answer, or what it
///         or the system says
///
/// Threads: any. A cancellation point at its beginning only.
int openLoggerDevice(const char* path, int flags);

} // namespace vqhost
