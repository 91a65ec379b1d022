#pragma once

#include <netinet/in.h>
#include <string>

namespace vqhost {

/// What the link says about an address.
enum class ProbeResult
{
    FREE,     ///< nobody has answered
    TAKEN,    ///< another host uses it, or asks for it at the same moment
    NOT_ASKED ///< the link cannot be asked: no privilege, no ARP on it, or it is down
};

struct probe_t
{
    ProbeResult result;
    std::string detail; ///< TAKEN: hardware address of the other host; NOT_ASKED: why
};

/// Asks the hosts on a link whether one of them uses an address: three ARP probes, 100 ms apart, in the manner of
/// RFC 5227 but with shorter waits. A host that needs longer than 100 ms for its answer can be missed.
///
/// Blocks for 300 ms if nobody answers. Threads: any.
probe_t probeAddress(const std::string& interfaceName, in_addr address);

} // namespace vqhost
