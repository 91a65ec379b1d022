#pragma once

#include "vqproc/OwnershipMark.h"

#include <vqproc/IPConfig.h>
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

    /// Puts the address of a record on its interface and notes the record as a holder, unless the interface carries
    /// the address for another reason. A record equal to one that holds it already is the same holder. Others'
    /// leftovers go first; the address itself is taken over if it is one.
    ///
    /// @return an empty text, or why it cannot be done
    std::string add(const ethernetConfig_t& record, in_addr address, uint8_t prefixLength);

    /// A record was refused, here or by somebody else: if an equal one holds an address, the next removal is taken
    /// for that of the refused one and leaves the address alone.
    void noteRefusal(const ethernetConfig_t& record);

    /// Gives up a record's hold on its address. Once every record has given it up the address goes. Only if one was
    /// granted more often than it was given up a socket of this process that is bound to the address keeps it: its
    /// owner may have an equal record, whose removal is still to come. Does nothing for a record that holds none.
    void remove(const ethernetConfig_t& record);

private:
    struct holder_t
    {
        ethernetConfig_t record;
        bool isRefusedSince = false;
        bool isGivenUp = false;  ///< at least one removal since it was granted
        unsigned grantsLeft = 1; ///< how many more removals may come if each grant was another object's
    };

    struct added_t
    {
        std::string interfaceName;
        unsigned interfaceIndex;
        in_addr address;
        uint8_t prefixLength;
        std::string label;
        std::vector<holder_t> holders;
        OwnershipMark mark;
    };

    AddedAddresses();

    std::string addNew(RouteSocket& route, added_t request) VQ_REQUIRES_LOCK(mutex);
    void removeLeftovers(RouteSocket& route, added_t& wanted) VQ_REQUIRES_LOCK(mutex);
    static holder_t* holderOf(added_t& entry, const ethernetConfig_t& record);
    static void removeFrom(RouteSocket& route, const added_t& entry);
    void removeAllAtExit();

    Mutex mutex;
    std::vector<added_t> added VQ_GUARDED_BY(mutex);
    bool exiting VQ_GUARDED_BY(mutex) = false;
    const pid_t owner;
};

} // namespace vqhost
