#pragma once

#include <cstdint>

namespace bench {

/// Allocations by operator new so far, on every thread. Link the source.
uint64_t allocations();

} // namespace bench
