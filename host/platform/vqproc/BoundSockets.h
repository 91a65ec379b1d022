#pragma once

#include <netinet/in.h>

namespace vqhost {

/// True if a socket of this process has the address as its own: bound to it, or connected from it. One that is bound
/// to every address of the machine does not count.
///
/// Looks at every descriptor of the process. Threads: any; a socket that another thread opens or closes meanwhile may
/// be seen or not.
bool isBoundInThisProcess(in_addr address);

} // namespace vqhost
