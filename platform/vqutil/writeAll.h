#pragma once

#include <vqutil/Export.h>

#include <cstddef>

/// Writes a whole buffer to a descriptor, going on after an interrupted or partial write(2).
///
/// @param fd    descriptor open for writing
/// @param data  first byte; may be null when `size` is 0
/// @param size  number of bytes
/// @return 0 once every byte is written; -1 on failure, with errno set by the failing call (ENODEV if the
///         device behind the descriptor is gone). After a failure the number of bytes written is unknown.
///
/// A logger device is known by the descriptor that open(2) gave out. On a duplicate of it, from dup(2) for example,
/// a fault that waits is not found, and a device that is gone shows as write(2) shows it, SIGPIPE included.
///
/// May block as long as the device is busy. Otherwise never raises SIGPIPE on a logger device.
/// Threads: any; calls on one descriptor are not serialised against each other.
VQ_API int writeAll(int fd, const void* data, size_t size);
