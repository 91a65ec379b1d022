#pragma once

#include <support/Recorder.h>

#include <string>

/// Notes what the socket calls of a program are called with; they go to the system. Link the source with WRAP and all
/// functions that it names.
///
/// Each call is one text, for example "socket stream 0", "connect 127.0.0.1:5000 16",
/// "setsockopt TCP_NODELAY 1 4", "sendto 3 bytes, flags 0, 127.0.0.2:5000 16", "recv 65535 bytes, flags 0",
/// "recvfrom 65535 bytes, flags 0, source 16", "close". A call on a descriptor that the latest socket() did not give
/// ends in " on another descriptor".
namespace socketcalls {

/// Calls so far but those of pselect, in order.
extern Recorder<std::string> made;

/// Calls of pselect, for example "pselect fd+1 {fd} 0 s 300000000 ns": the first argument, the members of the read set
/// and the time-out; "fd" is what the latest socket() gave. A write set, an exception set and a mask would be named.
extern Recorder<std::string> waits;

} // namespace socketcalls
