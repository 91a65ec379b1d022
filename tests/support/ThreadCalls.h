#pragma once

#include <cstddef>

/// Watches how the platform's Thread creates and joins its threads. Link the source with WRAP pthread_create
/// pthread_join; what the C++ library's own threads do is not seen.
namespace threadcalls {

/// From now on no thread can be created (EAGAIN), or again one can.
void refuse(bool refused);

/// Threads asked for so far, refused ones included.
size_t creations();

/// Whether the last thread was asked for with attributes of its own.
bool lastHadAttributes();

/// Joins that have begun so far.
size_t joins();

/// Waits, with a generous limit, until so many joins have begun since the start.
bool waitForJoins(size_t total);

} // namespace threadcalls
