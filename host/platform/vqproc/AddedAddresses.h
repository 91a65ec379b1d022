#pragma once

#include "vqproc/OwnershipMark.h"

#include <vqutil/Mutex.h>

#include <netinet/in.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vqhost {

class RouteSocket;

/// The addresses that this process has put on network interfaces, and their removal: on request, at process exit,
/// and, for a process that died, by the next one that adds an address.
///
/// Each address carries a label that ends in ":vq", and its process holds an OwnershipMark. A labelled address
/// without a living owner is what a process left behind that could not clean up.
///
/// Threads: any; requests are served one after the other. A child made by fork() owns nothing.
class AddedAddresses
{
public:
    /// The one object of the process, built on first use and never destroyed.
    static AddedAddresses& instance();

    /// Puts an address on an interface and counts the request, unless the interface carries it for another reason.
    /// Others' leftovers go first; the address itself is taken over if it is one.
    ///
    /// @return an empty text, or why it cannot be done
    std::string add(const std::string& interfaceName, in_addr address, uint8_t prefixLength);

    /// Takes back one request; the last one removes the address. Does nothing for an address of others.
    void remove(const std::string& interfaceName, in_addr address);

private:
    struct added_t
    {
        std::string interfaceName;
        unsigned interfaceIndex;
        in_addr address;
        uint8_t prefixLength;
        std::string label;
        unsigned requests;
        OwnershipMark mark;
    };

    AddedAddresses();

    std::string addNew(RouteSocket& route, added_t request) VQ_REQUIRES_LOCK(mutex);
    void removeLeftovers(RouteSocket& route, added_t& wanted) VQ_REQUIRES_LOCK(mutex);
    static void removeFrom(RouteSocket& route, const added_t& entry);
    void removeAllAtExit();

    Mutex mutex;
    std::vector<added_t> added VQ_GUARDED_BY(mutex);
    bool exiting VQ_GUARDED_BY(mutex) = false;
    const pid_t owner;
};

} // namespace vqhost
