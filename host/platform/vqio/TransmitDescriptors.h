#pragma once

/// The descriptors of transmit devices that this process has opened, so that writeAll() knows them.
///
/// A program closes a descriptor with plain close(2), which nobody here sees, and its number may soon stand for
/// anything. A number that was noted is therefore a hint; only isTransmitDevice() is sure.
///
/// Threads: any. No locks.
namespace vqhost {

/// Notes a descriptor that was just opened.
/// @return false if the system does not tell its identity
bool noteTransmitDescriptor(int fd);

/// True if the number once was a transmit device. Costs no system call.
bool mayBeTransmitDevice(int fd);

/// True if the descriptor is the transmit device that was noted; forgets the number if not. Keeps errno.
bool isTransmitDevice(int fd);

} // namespace vqhost
