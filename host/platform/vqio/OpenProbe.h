#pragma once

namespace vqhost {

/// A path that only its address makes special: opening it shows whether a call of open() arrives in this library.
extern const char OPEN_PROBE_PATH[];

/// Set by a call of open() with OPEN_PROBE_PATH.
extern bool openProbeArrived;

} // namespace vqhost

/// The open() of this library, whatever the name stands for in the program.
extern "C" __attribute__((visibility("hidden"))) int vqhostOpen(const char* path, int flags, ...);
